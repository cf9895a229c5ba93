#pragma once

#include <QString>

namespace varnel {

// Shows the file (a suite path) selected in the platform's file browser: on
// macOS through `open -R`, elsewhere through the freedesktop file manager's
// ShowItems call, and when no file manager answers, by opening its folder.
// Blocks for as long as the tools take (bounded by their time-outs); false
// when nothing could show it.
bool revealInFileBrowser(const QString& path);

// The two routes, built everywhere so that each can be tried anywhere; only
// the choice between them depends on the platform.
bool revealWithOpen(const QString& path);
bool revealWithFileManager(const QString& path);

}  // namespace varnel
