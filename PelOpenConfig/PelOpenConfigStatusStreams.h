#pragma once

#include "platform/AgentHost/CliPrinter.h"
#include "platform/Gale/ServiceStatus.h"

namespace Pel::Oc {

/// Who reads the export and how far behind each one is, and which calls went wrong.
void printStreams(AgentHost::CliPrinter& to,
                  const Gale::ServiceStatus& service,
                  Kiln::TimePoint now);

}  // namespace Pel::Oc
