// A method descriptor with any index.
//
// Generated code promises to end the process when a method's index is out of
// range. A descriptor pool never makes such a method, so tests forge one.

#ifndef CORE_COMMON_RPC_TESTING_FORGED_METHOD_H_
#define CORE_COMMON_RPC_TESTING_FORGED_METHOD_H_

#include <google/protobuf/descriptor.h>

#include <memory>

namespace torvane {

class ForgedMethod {
 public:
  // Copies `model`, any method, which must outlive the copy, and gives it
  // `index`. Only index() of the result may be used.
  ForgedMethod(const google::protobuf::MethodDescriptor* model, int index);
  ~ForgedMethod();

  const google::protobuf::MethodDescriptor* get() const;

 private:
  std::unique_ptr<char[]> service_;
  std::unique_ptr<char[]> method_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_FORGED_METHOD_H_
