#ifndef TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
#define TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_

#include "machine/Installation.h"
#include "report/Report.h"

namespace webresources {

/// Sets the advice of `report` to a command line that installs with `options`. Does nothing unless
/// the fix of a finding in `report` contains the text "run webresources install". The command
/// line has absolute paths. For an ordinary user, the command line begins with sudo. For another
/// host, the command line uses chroot, and first copies a bundle from outside the root into the
/// root. The command line also removes a lock file that `install` would refuse. Without a bundle in
/// `options`, the reader replaces the word BUNDLE.
void Advise(const HostOptions& options, Report& report);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
