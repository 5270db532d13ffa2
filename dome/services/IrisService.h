#pragma once

#include "Arguments.h"
#include "dome/model/Lens.h"
#include "tavos/interfaces/IIrisProvider.h"

namespace dome {

class IrisService final : public tavos::interfaces::IIrisProvider {
public:
    explicit IrisService(Iris& iris) : _iris(iris) {}

    void SetAutoIris(bool enabled) override { _iris.SetAuto(enabled); }
    bool GetAutoIris() override { return _iris.IsAuto(); }

    void MoveIris(int direction) override {
        CheckDirection(direction);
        _iris.Move(direction);
    }

private:
    Iris& _iris;
};

}  // namespace dome
