#ifndef TOOLS_WEBRESOURCES_COMMANDS_PLAN_H_
#define TOOLS_WEBRESOURCES_COMMANDS_PLAN_H_

#include "machine/InstallPlan.h"
#include "report/Report.h"

namespace webresources {

/// Reports what `install` will do: files, leftovers, record, bytes. The status is 1 if it will
/// refuse. Throws Error if something cannot be read.
Report Plan(const PlanOptions& options);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_COMMANDS_PLAN_H_
