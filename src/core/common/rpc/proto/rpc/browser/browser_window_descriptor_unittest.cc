// How the service code comes by its descriptor: the file's descriptors are
// assigned each time that somebody asks, and the file is looked up once. Seen
// by standing in for the two functions of protobuf that it calls.

#include <dlfcn.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/generated_message_reflection.h>
#include <gtest/gtest.h>

#include <string>

#include "rpc/browser/browser_window.rpc.h"

namespace {

constexpr char kFile[] = "rpc/browser/browser_window.proto";

int assignments = 0;
// Not those that protobuf makes itself while it assigns.
int lookups = 0;
bool is_assigning = false;

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace google::protobuf {

void internal::AssignDescriptors(const DescriptorTable* table, bool eager) {
  assignments +=
      table == &descriptor_table_rpc_2fbrowser_2fbrowser_5fwindow_2eproto;
  is_assigning = true;
  Next<void(const DescriptorTable*, bool)>(
      "_ZN6google8protobuf8internal17AssignDescriptorsEPKNS1_"
      "15DescriptorTableEb")(table, eager);
  is_assigning = false;
}

const FileDescriptor* DescriptorPool::FindFileByName(
    const std::string& name) const {
  lookups += !is_assigning && name == kFile;
  return Next<const FileDescriptor*(const DescriptorPool*, const std::string&)>(
      "_ZNK6google8protobuf14DescriptorPool14FindFileByNameERKNSt7__cxx1112"
      "basic_stringIcSt11char_traitsIcESaIcEEE")(this, name);
}

}  // namespace google::protobuf

namespace rpc {
namespace {

TEST(BrowserWindowDescriptor, AssignsOnEachRequestAndLooksUpOnce) {
  BrowserWindowRpc service;
  EXPECT_EQ(assignments, 0);
  EXPECT_EQ(lookups, 0);
  for (int i = 1; i <= 3; ++i) {
    ASSERT_NE(BrowserWindowRpc::descriptor(), nullptr);
    EXPECT_EQ(assignments, 2 * i - 1);
    ASSERT_NE(service.GetDescriptor(), nullptr);
    EXPECT_EQ(assignments, 2 * i);
  }
  EXPECT_EQ(lookups, 1);
}

}  // namespace
}  // namespace rpc
