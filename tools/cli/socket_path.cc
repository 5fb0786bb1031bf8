#include "tools/cli/socket_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "absl/strings/str_cat.h"

namespace cli {
namespace {

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::string DefaultSocketPath() {
  const char* const session = std::getenv("XDG_RUNTIME_DIR");
  const std::string folder =
      session && *session ? session : absl::StrCat("/tmp/torvane-", getuid());
  return folder + "/window_host.sock";
}

absl::Status CheckSocketFolder(const std::string& socket_path) {
  const std::string folder = FolderOf(socket_path);
  struct stat info;
  if (stat(folder.c_str(), &info) != 0)
    return absl::OkStatus();
  if (info.st_uid == getuid() || info.st_uid == 0)
    return absl::OkStatus();
  return absl::PermissionDeniedError(
      absl::StrCat("The folder ", folder,
                   " belongs to another user: choose a socket elsewhere with "
                   "--socket."));
}

absl::Status MakeSocketFolder(const std::string& socket_path) {
  const std::string folder = FolderOf(socket_path);
  if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    return absl::ErrnoToStatus(
        errno, absl::StrCat("The folder ", folder, " cannot be made"));
  }
  return CheckSocketFolder(socket_path);
}

}  // namespace cli
