// How methods are declared, for a person who is to use them: what goes in, what
// comes out, each field with its path, its type and its comment.
//
//   rpc.BrowserWindow.SetTitle: unary
//
//   Sets the text that the title bar and the task bar name the window by.
//
//   Request rpc.WindowTitle: The title of a window.
//     browser_id        BrowserId: The window. Required.
//     browser_id.value  int64: The number that the browser gave ...
//     title             string: The text. Absent: the empty title.
//
//   Response google.protobuf.Empty
//
// Comments are there where the descriptors carry them: those that are compiled
// into a program by the code of Protocol Buffers do not.
//
// Ownership: descriptors belong to their pool. Sequence: any one.
// Failure: none.

#ifndef TOOLS_RPCCTL_DECLARATION_H_
#define TOOLS_RPCCTL_DECLARATION_H_

#include <google/protobuf/descriptor.h>

#include <string>

namespace rpcctl {

// All of the above.
std::string Declaration(const google::protobuf::MethodDescriptor& method);

// The comment of a method, as prose without line breaks within a paragraph;
// empty if there is none.
std::string CommentOf(const google::protobuf::MethodDescriptor& method);

// A line, or several, for each field of a message and of the messages within;
// of more than 1,000 fields for the first ones.
std::string FieldsOf(const google::protobuf::Descriptor& type);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_DECLARATION_H_
