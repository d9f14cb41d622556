#include "platform/FileRevealer.h"

#import <AppKit/AppKit.h>

namespace FileRevealer {

bool showItem(const QString &path)
{
    // An empty root selects the file in the Finder's main viewer.
    return [NSWorkspace.sharedWorkspace selectFile:path.toNSString() inFileViewerRootedAtPath:@""];
}

} // namespace FileRevealer
