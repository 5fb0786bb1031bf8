#include "core/common/rpc/grpc/contract/derived_text.h"

#include <google/protobuf/compiler/parser.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>
#include <vector>

#include "absl/strings/ascii.h"
#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "absl/strings/str_split.h"
#include "absl/strings/strip.h"
#include "core/common/rpc/grpc/contract/derived_contract.h"

namespace rpc::grpc {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptorProto;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileOptions;
using google::protobuf::SourceCodeInfo;
using google::protobuf::SourceLocation;

// Stands before a text and is no part of it.
constexpr char kByteOrderMark[] = "\xef\xbb\xbf";

std::string TypeName(FieldDescriptorProto::Type type) {
  return type == FieldDescriptorProto::TYPE_BOOL ? "bool" : "int64";
}

// Where fields have a label. Descriptors of later releases do not tell a file's
// syntax; copies of it leave "proto2" out or have it.
bool IsProto2(const FileDescriptor& file) {
  FileDescriptorProto proto;
  file.CopyTo(&proto);
  return proto.syntax().empty() || proto.syntax() == "proto2";
}

// As the fields of `file` are written, `indentation` to the right.
std::vector<std::string> AddedLines(const FileDescriptor& file,
                                    size_t indentation) {
  const std::string indent(indentation, ' ');
  const char* const label = IsProto2(file) ? "optional " : "";
  std::vector<std::string> lines;
  for (const AddedField& field : AddedFields()) {
    lines.emplace_back();
    for (const std::string& line : field.comment) {
      lines.push_back(absl::StrCat(indent, "// ", line));
    }
    lines.push_back(absl::StrCat(indent, label, TypeName(field.type), " ",
                                 field.name, " = ", field.number, ";"));
  }
  return lines;
}

// The line at which the comment above `line`, that of what stands at
// `location`, begins; `line` if there is none.
size_t BeginOfComment(const SourceCodeInfo::Location& location,
                      const std::vector<std::string>& lines,
                      size_t line) {
  if (!location.has_leading_comments() || line == 0) {
    return line;
  }
  const std::string_view last = absl::StripAsciiWhitespace(lines[line - 1]);
  if (absl::StartsWith(last, "//")) {
    const auto comment = static_cast<size_t>(
        std::ranges::count(location.leading_comments(), '\n'));
    return line - std::min(line, comment);
  }
  if (!absl::EndsWith(last, "*/")) {
    return line;
  }
  size_t begin = line - 1;
  while (begin > 0 && !absl::StrContains(lines[begin], "/*")) {
    --begin;
  }
  // What stands before the comment stays, and the comment with it.
  return absl::StartsWith(absl::StripAsciiWhitespace(lines[begin]), "/*")
             ? begin
             : line;
}

// Whether there is nothing in these lines but one option, and a comment on it.
bool IsAlone(const std::string& lines) {
  const size_t end = std::min(lines.find(';'), lines.size() - 1);
  const std::string_view rest =
      absl::StripAsciiWhitespace(std::string_view(lines).substr(end + 1));
  return absl::StartsWith(absl::StripAsciiWhitespace(lines), "option") &&
         (rest.empty() || absl::StartsWith(rest, "//") ||
          absl::StartsWith(rest, "/*"));
}

// Where the option stands: its lines, with the comment above and the blank line
// below it. Nothing where it is not set.
struct Lines {
  size_t begin = 0;
  size_t end = 0;
};
absl::StatusOr<Lines> LinesOfOption(const FileDescriptor& file,
                                    const std::vector<std::string>& lines) {
  FileDescriptorProto proto;
  file.CopySourceCodeInfoTo(&proto);
  for (const SourceCodeInfo::Location& location :
       proto.source_code_info().location()) {
    if (location.path_size() != 2 ||
        location.path(0) != FileDescriptorProto::kOptionsFieldNumber ||
        location.path(1) != FileOptions::kCcGenericServicesFieldNumber) {
      continue;
    }
    const size_t first = static_cast<size_t>(location.span(0));
    const size_t last =
        static_cast<size_t>(location.span(location.span_size() == 4 ? 2 : 0));
    // Another text than the file's, which is noticed when it is parsed.
    if (last >= lines.size()) {
      break;
    }
    if (!IsAlone(absl::StrJoin(lines.begin() + static_cast<ptrdiff_t>(first),
                               lines.begin() + static_cast<ptrdiff_t>(last) + 1,
                               " "))) {
      return absl::InvalidArgumentError(
          absl::StrCat(file.name(),
                       ": the option cc_generic_services does not "
                       "stand on a line of its own"));
    }
    Lines found = {BeginOfComment(location, lines, first), last + 1};
    if (found.end < lines.size() && lines[found.end].empty()) {
      ++found.end;
    }
    return found;
  }
  return Lines();
}

// With the names in JSON, which only some descriptors have been told.
FileDescriptorProto Complete(const FileDescriptor& file) {
  FileDescriptorProto proto;
  file.CopyTo(&proto);
  file.CopyJsonNameTo(&proto);
  return proto;
}

void CopyImports(const FileDescriptor& file, DescriptorPool& pool) {
  for (int i = 0; i < file.dependency_count(); ++i) {
    const FileDescriptor& import = *file.dependency(i);
    if (pool.FindFileByName(import.name()) == nullptr) {
      CopyImports(import, pool);
      FileDescriptorProto proto;
      import.CopyTo(&proto);
      pool.BuildFile(proto);
    }
  }
}

// Keeps the first fault of a text.
class FirstFault final : public google::protobuf::io::ErrorCollector {
 public:
  void AddError(int, int, const std::string& message) override {
    if (message_.empty()) {
      message_ = message;
    }
  }

  const std::string& message() const { return message_; }

 private:
  std::string message_;
};

// The derived file, as the text says it.
absl::StatusOr<FileDescriptorProto> Parse(const std::string& text,
                                          const FileDescriptor& derived) {
  google::protobuf::io::ArrayInputStream input(text.data(),
                                               static_cast<int>(text.size()));
  FirstFault fault;
  google::protobuf::io::Tokenizer tokens(&input, &fault);
  google::protobuf::compiler::Parser parser;
  parser.RecordErrorsTo(&fault);
  FileDescriptorProto parsed;
  // Only one of them knows of what the other finds.
  if (!parser.Parse(&tokens, &parsed) || !fault.message().empty()) {
    return absl::InvalidArgumentError(
        absl::StrCat(derived.name(),
                     ": the derived text does not parse: ", fault.message()));
  }
  parsed.set_name(derived.name());
  DescriptorPool pool;
  CopyImports(derived, pool);
  const FileDescriptor* const built = pool.BuildFile(parsed);
  if (built == nullptr) {
    return absl::InvalidArgumentError(
        absl::StrCat(derived.name(), ": the derived text cannot be built"));
  }
  return Complete(*built);
}

}  // namespace

absl::StatusOr<std::string> DeriveText(
    const std::string& text,
    const FileDescriptor& file,
    const std::set<std::string>& question_types,
    const FileDescriptor& derived) {
  const std::vector<std::string> lines =
      absl::StrSplit(absl::StripPrefix(text, kByteOrderMark), '\n');
  // Lines before which fields come, by how far these are indented.
  std::map<size_t, size_t> ends;
  for (const std::string& type : question_types) {
    const auto* const message = file.pool()->FindMessageTypeByName(type);
    SourceLocation location;
    if (message->file() != &file || !message->GetSourceLocation(&location)) {
      continue;
    }
    const auto end = static_cast<size_t>(location.end_line);
    if (end >= lines.size() || absl::StripAsciiWhitespace(lines[end]) != "}") {
      return absl::InvalidArgumentError(absl::StrCat(
          file.name(), ": ", type, " does not end on a line of its own"));
    }
    ends[end] = lines[end].find('}') + 2;
  }
  const absl::StatusOr<Lines> option = LinesOfOption(file, lines);
  if (!option.ok()) {
    return option.status();
  }
  std::vector<std::string> changed;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (const auto end = ends.find(i); end != ends.end()) {
      const auto added = AddedLines(file, end->second);
      changed.insert(changed.end(), added.begin(), added.end());
    }
    if (i < option->begin || i >= option->end) {
      changed.push_back(lines[i]);
    }
  }
  std::string result = absl::StrJoin(changed, "\n");
  const absl::StatusOr<FileDescriptorProto> parsed = Parse(result, derived);
  if (!parsed.ok()) {
    return parsed.status();
  }
  if (parsed->SerializeAsString() != Complete(derived).SerializeAsString()) {
    return absl::InvalidArgumentError(absl::StrCat(
        "the text of ", file.name(), " is not what it was parsed from"));
  }
  return result;
}

}  // namespace rpc::grpc
