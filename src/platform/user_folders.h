#pragma once

#include <QString>

namespace varnel {

// Where the tray application keeps its own records for the user who runs it
// (its status history), as the system names the place: "~/Library/Logs/Varnel
// Status" on macOS, the XDG state folder elsewhere. Like the suite's paths it is
// looked up through the fs:: functions, so a sandbox root holds it too.
QString userLogFolder();

// The user's own configuration folder, named the same way.
QString userConfigFolder();

}  // namespace varnel
