#include "core/common/rpc/generator/cpp_names.h"

#include <google/protobuf/compiler/cpp/names.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string_view>

namespace torvane::generator {
namespace {

namespace cpp = google::protobuf::compiler::cpp;

constexpr std::string_view kKeywords[] = {
    "alignas",       "alignof",     "and",
    "and_eq",        "asm",         "auto",
    "bitand",        "bitor",       "bool",
    "break",         "case",        "catch",
    "char",          "char16_t",    "char32_t",
    "char8_t",       "class",       "co_await",
    "co_return",     "co_yield",    "compl",
    "concept",       "const",       "const_cast",
    "consteval",     "constexpr",   "constinit",
    "continue",      "decltype",    "default",
    "delete",        "do",          "double",
    "dynamic_cast",  "else",        "enum",
    "explicit",      "export",      "extern",
    "false",         "float",       "for",
    "friend",        "goto",        "if",
    "inline",        "int",         "long",
    "mutable",       "namespace",   "new",
    "noexcept",      "not",         "not_eq",
    "nullptr",       "operator",    "or",
    "or_eq",         "private",     "protected",
    "public",        "register",    "reinterpret_cast",
    "requires",      "return",      "short",
    "signed",        "sizeof",      "static",
    "static_assert", "static_cast", "struct",
    "switch",        "template",    "this",
    "thread_local",  "throw",       "true",
    "try",           "typedef",     "typeid",
    "typename",      "union",       "unsigned",
    "using",         "virtual",     "void",
    "volatile",      "wchar_t",     "while",
    "xor",           "xor_eq",
};

// Macros of the headers that generated code includes, and of compilers: those
// with lower-case letters in their names, and a few others that somebody might
// name a package after. LooksLikeMacro() covers the rest.
constexpr std::string_view kMacros[] = {
    "EOF",
    "INFINITY",
    "LOG",
    "L_ctermid",
    "L_cuserid",
    "L_tmpnam",
    "NAN",
    "NULL",
    "P_tmpdir",
    "alloca",
    "assert",
    "assert_perror",
    "be16toh",
    "be32toh",
    "be64toh",
    "bswap_16",
    "bswap_32",
    "bswap_64",
    "errno",
    "htobe16",
    "htobe32",
    "htobe64",
    "htole16",
    "htole32",
    "htole64",
    "i386",
    "issubnormal",
    "le16toh",
    "le32toh",
    "le64toh",
    "linux",
    "math_errhandling",
    "offsetof",
    "pthread_cleanup_pop",
    "pthread_cleanup_pop_restore_np",
    "pthread_cleanup_push",
    "pthread_cleanup_push_defer_np",
    "sched_priority",
    "stderr",
    "stdin",
    "stdout",
    "strdupa",
    "strndupa",
    "timeradd",
    "timerclear",
    "timercmp",
    "timerisset",
    "timersub",
    "unix",
};

// Members of every service class that a method must not hide.
constexpr std::string_view kBaseClassNames[] = {
    "CallMethod",           "GetDescriptor", "GetRequestPrototype",
    "GetResponsePrototype", "OpenStream",    "descriptor",
};

template <size_t size>
bool Contains(const std::string_view (&names)[size], std::string_view name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

// The headers define some two thousand macros. Instead of listing them, every
// name without a lower-case letter counts as one.
bool LooksLikeMacro(std::string_view name) {
  return std::none_of(name.begin(), name.end(),
                      [](char c) { return c >= 'a' && c <= 'z'; });
}

// Identifiers that C++ reserves for the compiler, such as predefined macros.
bool BelongsToCompiler(std::string_view name) {
  return name.find("__") != name.npos || (name.size() > 1 && name[0] == '_' &&
                                          name[1] >= 'A' && name[1] <= 'Z');
}

// For ASCII, independently of the locale.
bool IsAlphanumeric(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
         (c >= 'a' && c <= 'z');
}

}  // namespace

std::string FileStem(const google::protobuf::FileDescriptor& file) {
  return cpp::StripProto(file.name());
}

std::string FileIdentifier(const google::protobuf::FileDescriptor& file) {
  std::ostringstream identifier;
  for (const unsigned char c : file.name()) {
    if (IsAlphanumeric(c))
      identifier << c;
    else
      identifier << '_' << std::hex << static_cast<int>(c);
  }
  return identifier.str();
}

std::string DescriptorTable(const google::protobuf::FileDescriptor& file) {
  return "descriptor_table_" + FileIdentifier(file);
}

std::string Namespace(const google::protobuf::FileDescriptor& file) {
  std::string result(file.package());
  for (size_t dot = 0; (dot = result.find('.', dot)) != result.npos;)
    result.replace(dot, 1, "::");
  return result;
}

std::string MessageClass(const google::protobuf::Descriptor& message) {
  return cpp::QualifiedClassName(&message);
}

std::string ServiceClass(const google::protobuf::ServiceDescriptor& service) {
  return std::string(service.name()) + "Rpc";
}

std::string MethodFunction(const google::protobuf::MethodDescriptor& method) {
  std::string name(method.name());
  if (IsReservedWord(name) || LooksLikeMacro(name) || BelongsToCompiler(name) ||
      Contains(kBaseClassNames, name) ||
      name == ServiceClass(*method.service())) {
    name += "_";
  }
  return name;
}

bool IsReservedWord(const std::string& name) {
  return Contains(kKeywords, name) || Contains(kMacros, name);
}

}  // namespace torvane::generator
