#include "tools/rpcctl/declaration.h"

#include <algorithm>
#include <vector>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "absl/strings/str_split.h"
#include "absl/strings/strip.h"
#include "tools/cli/text_layout.h"
#include "tools/rpcctl/fields.h"
#include "tools/rpcctl/method_table.h"

namespace rpcctl {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::MethodDescriptor;
using google::protobuf::SourceLocation;

// Joins the lines of each paragraph. An indented line stays one of its own.
std::string ToProse(const std::string& comment) {
  std::string prose;
  bool goes_on = false;
  for (std::string_view line : absl::StrSplit(comment, '\n')) {
    absl::ConsumePrefix(&line, " ");
    const bool is_prose = !line.empty() && !absl::StartsWith(line, "  ");
    if (!prose.empty())
      absl::StrAppend(&prose, goes_on && is_prose ? " " : "\n");
    absl::StrAppend(&prose, line);
    goes_on = is_prose;
  }
  while (absl::EndsWith(prose, "\n"))
    prose.pop_back();
  return prose;
}

template <typename Element>
std::string CommentOfAny(const Element& element) {
  SourceLocation location;
  if (!element.GetSourceLocation(&location))
    return "";
  return ToProse(location.leading_comments.empty() ? location.trailing_comments
                                                   : location.leading_comments);
}

std::string TypeOf(const FieldDescriptor& field) {
  std::string type = field.type_name();
  if (field.message_type() != nullptr)
    type = field.message_type()->full_name();
  else if (field.enum_type() != nullptr)
    type = field.enum_type()->full_name();
  return field.is_repeated() ? absl::StrCat("repeated ", type) : type;
}

// The values by the names that can be typed, each with its comment.
std::string ValuesOf(const EnumDescriptor& type) {
  std::string values;
  for (int i = 0; i < type.value_count(); ++i) {
    const std::string comment = CommentOfAny(*type.value(i));
    absl::StrAppend(&values, "\n", ShortName(*type.value(i)),
                    comment.empty() ? "" : ": ", comment);
  }
  return values;
}

std::string TextOf(const FieldDescriptor& field) {
  std::string text = TypeOf(field);
  if (const std::string comment = CommentOfAny(field); !comment.empty())
    absl::StrAppend(&text, ": ", comment);
  if (const auto* oneof = field.real_containing_oneof())
    absl::StrAppend(&text, "\nNo more than one of ", oneof->name(), ".");
  if (field.enum_type() != nullptr)
    text += ValuesOf(*field.enum_type());
  return text;
}

// Of more than these a person reads only the beginning. A few messages that
// contain each other may have more than fit into memory.
constexpr size_t kMaxRows = 1000;

// `within` has the messages around this one: one that contains itself is not
// described again. Adds no more when there are more than kMaxRows.
void AddRows(const Descriptor& type,
             const std::string& path,
             std::vector<const Descriptor*>& within,
             std::vector<cli::Row>& rows) {
  if (std::find(within.begin(), within.end(), &type) != within.end())
    return;
  within.push_back(&type);
  for (int i = 0; i < type.field_count() && rows.size() <= kMaxRows; ++i) {
    const FieldDescriptor& field = *type.field(i);
    rows.push_back({path + field.name(), TextOf(field)});
    if (field.message_type() != nullptr) {
      AddRows(*field.message_type(), absl::StrCat(path, field.name(), "."),
              within, rows);
    }
  }
  within.pop_back();
}

std::string Paragraph(std::string_view text) {
  return absl::StrCat(
      "\n", absl::StrJoin(cli::Wrap(text, cli::kLineWidth), "\n"), "\n");
}

std::string Described(std::string_view what, const Descriptor& type) {
  std::string head = absl::StrCat(what, " ", type.full_name());
  // The comments of Protocol Buffers' own types tell how to use them in code.
  const std::string comment = CommentOfAny(type);
  if (!comment.empty() &&
      !absl::StartsWith(type.full_name(), "google.protobuf."))
    absl::StrAppend(&head, ": ", comment);
  return Paragraph(head) + FieldsOf(type);
}

}  // namespace

std::string Declaration(const MethodDescriptor& method) {
  std::string text = absl::StrCat(method.full_name(), ": ",
                                  KindName(torvane::KindOf(method)), "\n");
  if (const std::string comment = CommentOf(method); !comment.empty())
    text += Paragraph(comment);
  text += Described("Request", *method.input_type());
  if (method.output_type() == method.input_type())
    return text + "\nThe response is of the same type.\n";
  return text + Described("Response", *method.output_type());
}

std::string CommentOf(const MethodDescriptor& method) {
  return CommentOfAny(method);
}

std::string FieldsOf(const Descriptor& type) {
  std::vector<const Descriptor*> within;
  std::vector<cli::Row> rows;
  AddRows(type, "", within, rows);
  if (rows.size() > kMaxRows) {
    rows.back() = {"...", absl::StrCat("There are more than ", kMaxRows,
                                       ": describe the messages within.")};
  }
  return cli::Columns(rows);
}

}  // namespace rpcctl
