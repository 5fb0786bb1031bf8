#include <cstdio>

#include "absl/strings/str_cat.h"
#include "tools/cli/nearest_name.h"
#include "tools/cli/printable.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/method_table.h"
#include "tools/rpcctl/reflection.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

ExitCode ListServices(Session& session) {
  if (ExitCode fault = session.Connect(); fault != kSuccess)
    return fault;
  const auto services = FetchServices(session);
  if (!services.ok())
    return FailOn(session.client(), services.status());
  for (const std::string& service : *services)
    PrintLine(cli::Printable(service));
  return kSuccess;
}

}  // namespace

ExitCode List(Session& session, const Arguments& arguments) {
  if (arguments.empty())
    return ListServices(session);
  if (arguments.size() != 1)
    return Fail(kUsage, "'list' takes a service, or nothing.");
  if (ExitCode fault = session.LoadContract(); fault != kSuccess)
    return fault;
  std::vector<std::string> known;
  for (const auto* service : session.contract().services) {
    if (service->full_name() == arguments[0]) {
      std::fputs(ListMethods(*service).c_str(), stdout);
      return kSuccess;
    }
    known.push_back(service->full_name());
  }
  return Fail(kUsage,
              absl::StrCat("The server offers no service ", arguments[0], ".",
                           cli::DidYouMean(arguments[0], known)));
}

}  // namespace rpcctl
