// The services that windowctl is built with, and what their proto files say of
// them: the code that Protocol Buffers makes of the files leaves the comments
// out, so the files themselves are part of the program as well.
//
// Ownership: the process's. Sequence: any one. Failure: none.

#ifndef TOOLS_WINDOWCTL_CONTRACT_H_
#define TOOLS_WINDOWCTL_CONTRACT_H_

#include <google/protobuf/descriptor.h>

#include <vector>

namespace windowctl {

// rpc.BrowserWindow, and rpc.directory.WindowDirectory after it.
std::vector<const google::protobuf::ServiceDescriptor*> Services();

// The same declarations with comments.
const google::protobuf::DescriptorPool& CommentedDeclarations();

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_CONTRACT_H_
