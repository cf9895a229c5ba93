#include "platform/file_reveal.h"

namespace varnel {

// Finder selects the file in its folder.
bool revealInFileBrowser(const QString& path) {
    return revealWithOpen(path);
}

}  // namespace varnel
