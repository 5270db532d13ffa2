#pragma once

#include "Arguments.h"
#include "dome/model/Lens.h"
#include "tavos/interfaces/IZoomProvider.h"

namespace dome {

/// A magnification beyond the range is no error: the lens stops at its end.
class ZoomService final : public tavos::interfaces::IZoomProvider {
public:
    explicit ZoomService(Zoom& zoom) : _zoom(zoom) {}

    void SetMagnificationThousandthsX(std::uint32_t magnification, int timeLimit) override {
        CheckTimeLimit(timeLimit);
        _zoom.MoveTo(magnification, timeLimit);
    }

    void SetMaxMagnificationThousandthsX(std::uint32_t magnification) override {
        Refusable([&] { _zoom.SetMaximum(magnification); });
    }

    std::uint32_t GetMagnificationThousandthsX() override { return _zoom.Magnification(); }
    std::uint32_t GetMaxMagnificationThousandthsX() override { return _zoom.Maximum(); }
    std::uint32_t GetMaxDigitalMagnificationThousandthsX() override { return _zoom.DigitalMaximum(); }
    std::uint32_t GetMaxOpticalMagnificationThousandthsX() override { return _zoom.OpticalMaximum(); }

    void ZoomRelative(int direction, int timeLimit) override {
        CheckDirection(direction);
        CheckTimeLimit(timeLimit);
        _zoom.Move(direction, timeLimit);
    }

private:
    Zoom& _zoom;
};

}  // namespace dome
