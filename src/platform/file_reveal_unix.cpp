#include "platform/file_reveal.h"

namespace varnel {

// Whichever file manager the desktop runs, if it speaks the freedesktop call.
bool revealInFileBrowser(const QString& path) {
    return revealWithFileManager(path);
}

}  // namespace varnel
