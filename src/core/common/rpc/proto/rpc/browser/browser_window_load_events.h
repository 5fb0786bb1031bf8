// What happens before main() and after exit(), seen by standing in for the two
// functions that load-time initialisers call. This source instantiates no
// stream type itself.
//
// At exit, the name of each registry is written to standard error when it is
// torn down.

#ifndef RPC_BROWSER_BROWSER_WINDOW_LOAD_EVENTS_H_
#define RPC_BROWSER_BROWSER_WINDOW_LOAD_EVENTS_H_

#include <string>
#include <vector>

namespace rpc {

// In order: "closed", "command", "menu", "close" when the registry of that
// stream type was built, "descriptors" when those of the file were registered.
std::vector<std::string> LoadEvents();

}  // namespace rpc

#endif  // RPC_BROWSER_BROWSER_WINDOW_LOAD_EVENTS_H_
