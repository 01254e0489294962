#ifndef TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
#define TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_

#include "machine/Installation.h"
#include "report/Report.h"

namespace webresources {

/// Sets the advice of `report` if an installation with `options` repairs one of its findings. The
/// advice is a command line for a shell in any directory: with sudo for an ordinary user, and in a
/// chroot for another host. A bundle outside the root is copied into the root. Without a bundle in
/// `options`, the reader has to choose the bundle.
void Advise(const HostOptions& options, Report& report);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_ADVICE_H_
