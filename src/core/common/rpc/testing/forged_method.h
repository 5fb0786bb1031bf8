// A method descriptor with any index.
//
// No descriptor pool makes a method with an index that its service does not
// have, yet the code that goes by indices promises to refuse it.

#ifndef CORE_COMMON_RPC_TESTING_FORGED_METHOD_H_
#define CORE_COMMON_RPC_TESTING_FORGED_METHOD_H_

#include <google/protobuf/descriptor.h>

#include <memory>

namespace torvane {

class ForgedMethod {
 public:
  // `model` is any method; it must outlive the forgery, which looks like it but
  // for its index. Only index() of the result may be relied on.
  ForgedMethod(const google::protobuf::MethodDescriptor* model, int index);
  ~ForgedMethod();

  const google::protobuf::MethodDescriptor* get() const;

 private:
  std::unique_ptr<char[]> service_;
  std::unique_ptr<char[]> method_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_FORGED_METHOD_H_
