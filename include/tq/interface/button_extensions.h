// Button helpers.
//
// Threads: the interface (main) thread.
#pragma once

#include "tq/platform/ui/model/button.h"

namespace tq {

// Whether the button is a check box: its cell tells its button type (HasButtonType) and that type
// is NSSwitchButton. Radio buttons, push buttons, buttons whose cell has no button type (a custom
// cell class, or no cell) and a null button answer false.
bool isSwitchButton(const Button* button);
inline bool isSwitchButton(const Button& button) { return isSwitchButton(&button); }

}  // namespace tq
