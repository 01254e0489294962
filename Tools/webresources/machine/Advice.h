#ifndef TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
#define TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_

#include "machine/Installation.h"
#include "report/Report.h"

namespace webresources {

/// Sets the advice of `report` to a command line that installs with `options`. Does nothing unless
/// the fix of a finding in `report` contains the text "run webresources install". A shell in any
/// directory can run the command line: with sudo for an ordinary user, and in a chroot for another
/// host. A bundle outside the root is copied into the root. Without a bundle in `options`, the
/// command line has the word BUNDLE for the reader to replace.
void Advise(const HostOptions& options, Report& report);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
