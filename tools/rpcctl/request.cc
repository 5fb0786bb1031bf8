#include "tools/rpcctl/request.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "tools/rpcctl/fields.h"
#include "tools/rpcctl/json.h"

namespace rpcctl {
namespace {

// All that can be read; `name` says of what, in errors.
absl::StatusOr<std::string> ReadAll(int file, std::string_view name) {
  std::string text;
  std::array<char, 65536> chunk;
  for (;;) {
    const ssize_t size = read(file, chunk.data(), chunk.size());
    if (size < 0 && errno == EINTR)
      continue;
    if (size < 0)
      return absl::ErrnoToStatus(errno, absl::StrCat("Can't read ", name));
    if (size == 0)
      return text;
    text.append(chunk.data(), static_cast<size_t>(size));
    if (text.size() > kMaxJsonBytes) {
      return absl::InvalidArgumentError(
          absl::StrCat("There is more than ", kMaxJsonBytes,
                       " bytes of JSON in ", name, "."));
    }
  }
}

absl::StatusOr<std::string> ReadFile(const std::string& path) {
  const rpc::loop::ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.is_valid())
    return absl::ErrnoToStatus(errno, absl::StrCat("Can't open ", path));
  return ReadAll(file.get(), path);
}

}  // namespace

absl::StatusOr<std::string> ReadJson(const std::string& word) {
  if (word == "-")
    return ReadAll(STDIN_FILENO, "standard input");
  return absl::StartsWith(word, "@") ? ReadFile(word.substr(1)) : word;
}

absl::Status ReadRequest(const std::vector<std::string>& words,
                         google::protobuf::Message* request) {
  if (IsFieldWord(words[0]))
    return SetFields(words, request);
  if (words.size() > 1) {
    return absl::InvalidArgumentError(
        "A request is one word of JSON, or FIELD=VALUE words.");
  }
  const absl::StatusOr<std::string> json = ReadJson(words[0]);
  return json.ok() ? FromJson(*json, request) : json.status();
}

}  // namespace rpcctl
