#pragma once

#include "dome/model/Camera.h"
#include "tavos/interfaces/IPresetsV2Provider.h"

namespace dome {

class PresetsV2Service final : public tavos::interfaces::IPresetsV2Provider {
public:
    explicit PresetsV2Service(const Camera& camera) : _camera(camera) {}

    std::uint32_t GetMaxPresets() override { return _camera.presets; }

private:
    const Camera& _camera;
};

}  // namespace dome
