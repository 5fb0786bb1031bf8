#include "core/common/rpc/trace/trace_file.h"

#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/log_capture.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "core/common/rpc/testing/private_folder.h"

namespace rpc::trace {
namespace {

using google::protobuf::ListValue;
using google::protobuf::Struct;
using serving::Span;
using serving::SpanKind;
using std::chrono::milliseconds;

class TraceFileTest : public ::testing::Test {
 protected:
  void Open(size_t max_bytes = TraceFile::kMaxBytes) {
    absl::StatusOr<std::unique_ptr<TraceFile>> opened =
        TraceFile::Open(sequence, path, max_bytes);
    ASSERT_TRUE(opened.ok()) << opened.status();
    trace = *std::move(opened);
  }
  absl::Status OpenFails() { return TraceFile::Open(sequence, path).status(); }

  std::string Contents() const {
    std::ostringstream contents;
    contents << std::ifstream(path).rdbuf();
    return contents.str();
  }

  // The events of the file, which is closed now.
  std::vector<Struct> Events() {
    trace.reset();
    return Parse(Contents());
  }
  static std::vector<Struct> Parse(const std::string& json) {
    ListValue list;
    const auto status =
        google::protobuf::util::JsonStringToMessage(json, &list);
    EXPECT_TRUE(status.ok()) << status.ToString() << "\n" << json;
    std::vector<Struct> events;
    for (const auto& value : list.values()) {
      events.push_back(value.struct_value());
    }
    return events;
  }

  static std::string Text(const Struct& event, const std::string& field) {
    return event.fields().at(field).string_value();
  }
  static double Number(const Struct& event, const std::string& field) {
    return event.fields().at(field).number_value();
  }
  static const Struct& Object(const Struct& event, const std::string& field) {
    return event.fields().at(field).struct_value();
  }

  const torvane::PrivateFolder folder;
  std::string path = folder.File("trace.json");
  loop::ManualSequence sequence;
  std::unique_ptr<TraceFile> trace;
  const Span call = {SpanKind::kCall, 3, "GetTitle", 17};
};

TEST_F(TraceFileTest, NothingThatHappensIsAnEmptyArray) {
  Open();
  EXPECT_TRUE(Events().empty());
}

TEST_F(TraceFileTest, ASpanIsItsBeginningAndItsEnd) {
  Open();
  sequence.Advance(std::chrono::nanoseconds(1'500'007));
  trace->Begin(call);
  sequence.Advance(std::chrono::microseconds(25));
  trace->End(call, absl::OkStatus());
  const std::vector<Struct> events = Events();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(Text(events[0], "ph"), "b");
  EXPECT_EQ(Text(events[1], "ph"), "e");
  EXPECT_DOUBLE_EQ(Number(events[0], "ts"), 1'500.007);
  EXPECT_DOUBLE_EQ(Number(events[1], "ts"), 1'525.007);
  for (const Struct& event : events) {
    EXPECT_EQ(Text(event, "cat"), "call");
    EXPECT_EQ(Text(event, "name"), "GetTitle");
    EXPECT_EQ(Text(Object(event, "id2"), "local"), "17");
    EXPECT_EQ(Number(event, "pid"), 3);
    EXPECT_EQ(Number(event, "tid"), 1);
    EXPECT_FALSE(event.fields().contains("args"));
  }
}

TEST_F(TraceFileTest, EachKindOfSpanHasItsCategory) {
  Open();
  trace->Begin({SpanKind::kConnection, 1, "windowctl", 0});
  trace->Begin({SpanKind::kCall, 1, "GetTitle", 1});
  trace->Begin({SpanKind::kStream, 1, "OnCommand", 1});
  trace->Begin({SpanKind::kQuestion, 1, "OnCommand", 1});
  std::vector<std::string> categories;
  for (const Struct& event : Events()) {
    if (Text(event, "ph") == "b") {
      categories.push_back(Text(event, "cat"));
    }
  }
  EXPECT_EQ(categories, (std::vector<std::string>{"connection", "call",
                                                  "stream", "question"}));
}

TEST_F(TraceFileTest, QuestionsOfTwoMethodsAreToldApart) {
  Open();
  trace->Begin({SpanKind::kQuestion, 1, "OnCommand", 7});
  trace->Begin({SpanKind::kQuestion, 1, "OnCloseWindow", 7});
  const std::vector<Struct> events = Events();
  EXPECT_EQ(Text(Object(events[0], "id2"), "local"), "OnCommand.7");
  EXPECT_EQ(Text(Object(events[1], "id2"), "local"), "OnCloseWindow.7");
}

TEST_F(TraceFileTest, WhatHasFailedSaysHow) {
  Open();
  trace->Begin(call);
  trace->End(call, absl::NotFoundError("No window \"7\".\n\\ \xff ä"));
  const Struct arguments = Object(Events()[1], "args");
  EXPECT_EQ(Text(arguments, "status"), "NOT_FOUND");
  EXPECT_EQ(Text(arguments, "text"),
            "No window \\\"7\\\".\\n\\\\ \\xff \\xc3\\xa4");
}

TEST_F(TraceFileTest, AConnectionIsAProcessWithTheNameOfItsClient) {
  Open();
  trace->Begin({SpanKind::kConnection, 3, "\"evil\"\n (pid 7)", 0});
  const std::vector<Struct> events = Events();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(Text(events[0], "ph"), "M");
  EXPECT_EQ(Text(events[0], "name"), "process_name");
  EXPECT_EQ(Number(events[0], "pid"), 3);
  EXPECT_EQ(Text(Object(events[0], "args"), "name"), "\\\"evil\\\"\\n (pid 7)");
  EXPECT_EQ(Text(events[1], "name"), "connection");
}

TEST_F(TraceFileTest, AnEventIsAMomentOfItsStreamWithItsSize) {
  Open();
  trace->Event({SpanKind::kStream, 3, "WhenBrowserWindowClosed", 5}, 1'234);
  const Struct event = Events().at(0);
  EXPECT_EQ(Text(event, "ph"), "n");
  EXPECT_EQ(Text(event, "cat"), "stream");
  EXPECT_EQ(Text(Object(event, "id2"), "local"), "5");
  EXPECT_EQ(Number(Object(event, "args"), "bytes"), 1'234);
}

TEST_F(TraceFileTest, WhatHasHappenedIsInTheFileSoon) {
  Open();
  trace->Begin(call);
  EXPECT_EQ(Contents(), "");
  sequence.Advance(TraceFile::kMaxDelay);
  EXPECT_EQ(Parse(Contents() + "]").size(), 1u);
  // And what happens later, as soon.
  trace->End(call, absl::OkStatus());
  sequence.Advance(TraceFile::kMaxDelay);
  EXPECT_EQ(Parse(Contents() + "]").size(), 2u);
}

TEST_F(TraceFileTest, MuchIsWrittenAtOnce) {
  Open();
  for (int i = 0; i < 1'000; ++i) {
    trace->Begin(call);
  }
  EXPECT_GT(Contents().size(), size_t{64 << 10});
}

TEST_F(TraceFileTest, NothingIsLeftToDoWhereNothingHappens) {
  Open();
  EXPECT_EQ(sequence.timers(), 0u);
  trace->Begin(call);
  sequence.Advance(TraceFile::kMaxDelay);
  EXPECT_EQ(sequence.timers(), 0u);
}

TEST_F(TraceFileTest, TheFileGrowsToItsLongestToTheByte) {
  Open();
  trace->Begin(call);
  trace->Begin(call);
  trace.reset();
  const std::string two = Contents();

  torvane::LogCapture log;
  Open(two.size());
  trace->Begin(call);
  trace->Begin(call);
  EXPECT_TRUE(log.records().empty());
  trace->Begin(call);
  trace->End(call, absl::OkStatus());
  EXPECT_EQ(log.TakeTexts(),
            std::vector<std::string>{absl::StrCat(
                "Nothing more is written to the trace file ", path,
                ": it would be longer than ", two.size(), " bytes")});
  EXPECT_EQ(Events().size(), 2u);
  EXPECT_EQ(Contents(), two);

  Open(two.size() - 1);
  trace->Begin(call);
  trace->Begin(call);
  EXPECT_EQ(Events().size(), 1u);
}

// As on a full disk, but without one.
TEST_F(TraceFileTest, AFileThatTakesNoMoreIsLeftAlone) {
  const auto ignored = signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit small = before;
  small.rlim_cur = 10;
  setrlimit(RLIMIT_FSIZE, &small);

  torvane::LogCapture log;
  Open();
  for (int i = 0; i < 3; ++i) {
    trace->Begin(call);
    sequence.Advance(TraceFile::kMaxDelay);
  }
  trace.reset();
  EXPECT_EQ(log.TakeTexts(), std::vector<std::string>{absl::StrCat(
                                 "Nothing more is written to the trace file ",
                                 path, ": File too large")});
  EXPECT_EQ(Contents().size(), 10u);

  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, ignored);
}

TEST_F(TraceFileTest, WhatComesAfterTheEndIsDropped) {
  Open();
  trace->Begin(call);
  trace->Close();
  const std::string closed = Contents();
  EXPECT_EQ(Parse(closed).size(), 1u);
  trace->End(call, absl::OkStatus());
  trace->Close();
  trace.reset();
  EXPECT_EQ(Contents(), closed);
  EXPECT_EQ(sequence.timers(), 0u);
}

TEST_F(TraceFileTest, AFormerFileIsEmptied) {
  std::ofstream(path) << std::string(1'000, 'x');
  Open();
  EXPECT_TRUE(Events().empty());
}

TEST_F(TraceFileTest, AFileThatIsBeingWrittenIsLeftToItsWriter) {
  Open();
  trace->Begin(call);
  sequence.Advance(TraceFile::kMaxDelay);
  const std::string before = Contents();
  EXPECT_EQ(OpenFails(), absl::AlreadyExistsError(absl::StrCat(
                             "another process writes the trace file ", path,
                             ": choose another one")));
  EXPECT_EQ(Contents(), before);
  EXPECT_EQ(Events().size(), 1u);
  Open();
}

TEST_F(TraceFileTest, OnlyThisUserMayReadIt) {
  Open();
  struct stat found = {};
  ASSERT_EQ(stat(path.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 0777, 0600u);
}

TEST_F(TraceFileTest, AFileThatCannotBeMadeIsNamed) {
  path = folder.File("no/such/folder");
  EXPECT_EQ(OpenFails(), absl::NotFoundError(
                             absl::StrCat("cannot write the trace file ", path,
                                          ": No such file or directory")));
}

TEST_F(TraceFileTest, NoOtherKindOfFileIsWrittenTo) {
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  // Nobody reads from it, and it must not be waited for.
  EXPECT_FALSE(OpenFails().ok());
  path = "/dev/null";
  EXPECT_EQ(OpenFails(), absl::FailedPreconditionError(
                             "the trace file /dev/null is not a regular file"));
}

}  // namespace
}  // namespace rpc::trace
