#pragma once

namespace varnel {

// The platform's named colours, as data. Decisions (which colour a health, a
// level or a message gets) name one of these; only the UI layer turns a name
// into pixels, for the light or the dark appearance (app/system_palette.h).
enum class SystemColor { green, red, gray, yellow, orange, blue, label, secondaryLabel };

}  // namespace varnel
