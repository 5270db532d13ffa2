#pragma once

#include "Arguments.h"
#include "dome/model/Lens.h"
#include "tavos/interfaces/IFocusProvider.h"

namespace dome {

class FocusService final : public tavos::interfaces::IFocusProvider {
public:
    explicit FocusService(Focus& focus) : _focus(focus) {}

    void SetAutoFocus(bool enabled) override { _focus.SetAuto(enabled); }

    void MoveFocus(int direction) override {
        CheckDirection(direction);
        _focus.Move(direction);
    }

private:
    Focus& _focus;
};

}  // namespace dome
