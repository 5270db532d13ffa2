#pragma once

#include "Arguments.h"
#include "dome/model/Lens.h"
#include "tavos/interfaces/IFocusV2Provider.h"

namespace dome {

/// Translations are distances, 0 to 100. RelativeFocus takes them with a sign: positive is towards far. A move stops at
/// the end of the range.
class FocusV2Service final : public tavos::interfaces::IFocusV2Provider {
public:
    explicit FocusV2Service(Focus& focus) : _focus(focus) {}

    void AutoFocus(bool start) override { _focus.Refocus(start); }
    double GetMinPosition() override { return _focus.Drive().Minimum(); }
    double GetMaxPosition() override { return _focus.Drive().Maximum(); }
    double GetMinTranslation() override { return 0; }
    double GetMaxTranslation() override { return GetMaxPosition() - GetMinPosition(); }
    double GetPosition() override { return _focus.Percent(); }

    void SetPosition(double position) override {
        CheckPercent("position", position, 0);
        _focus.MoveTo(position);
    }

    void RelativeFocus(double translation) override {
        CheckPercent("translation", translation, -100);
        _focus.MoveTo(_focus.Percent() + translation);
    }

private:
    Focus& _focus;
};

}  // namespace dome
