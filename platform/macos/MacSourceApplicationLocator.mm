#include "platform/SourceApplicationLocator.h"

#import <AppKit/AppKit.h>

#include <sys/sysctl.h>
#include <unistd.h>

namespace SourceApplicationLocator {
namespace {

pid_t parentOf(pid_t pid)
{
    kinfo_proc info{};
    size_t size = sizeof(info);
    int query[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    if (sysctl(query, 4, &info, &size, nullptr, 0) != 0 || size == 0)
        return -1;
    return info.kp_eproc.e_ppid;
}

} // namespace

SourceApplication locate()
{
    // LaunchServices sets this for every process started from an application bundle,
    // and the shell in a terminal window inherits it.
    const QString identifier = qEnvironmentVariable("__CFBundleIdentifier");
    if (identifier.isEmpty())
        return {};
    NSArray<NSRunningApplication *> *candidates =
        [NSRunningApplication runningApplicationsWithBundleIdentifier:identifier.toNSString()];
    // The copy of the terminal that is one of our ancestors, else any copy.
    for (pid_t ancestor = getppid(); ancestor > 1; ancestor = parentOf(ancestor)) {
        for (NSRunningApplication *candidate in candidates) {
            if (candidate.processIdentifier == ancestor)
                return {identifier, qint32(ancestor)};
        }
    }
    if (candidates.count > 0)
        return {identifier, qint32(candidates.firstObject.processIdentifier)};
    return {identifier, std::nullopt};
}

} // namespace SourceApplicationLocator
