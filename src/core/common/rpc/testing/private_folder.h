// A folder that only this user may use, as a server's socket needs it.
// Destroying the object removes the folder and its contents.
//
//   const torvane::PrivateFolder folder;
//   server.Listen(folder.File("socket"));
//
// It is in /tmp and not in the test's own folder, because a socket's path must
// not be longer than 107 bytes.

#ifndef CORE_COMMON_RPC_TESTING_PRIVATE_FOLDER_H_
#define CORE_COMMON_RPC_TESTING_PRIVATE_FOLDER_H_

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"

namespace torvane {

class PrivateFolder {
 public:
  PrivateFolder() { ABSL_PCHECK(mkdtemp(path_.data()) != nullptr) << path_; }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::string& path() const { return path_; }

  // The path of something in the folder.
  std::string File(std::string_view name) const {
    return absl::StrCat(path_, "/", name);
  }

 private:
  std::string path_ = "/tmp/torvane.XXXXXX";
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_PRIVATE_FOLDER_H_
