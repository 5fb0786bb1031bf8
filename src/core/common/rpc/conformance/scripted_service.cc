#include "core/common/rpc/conformance/scripted_service.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/wrappers.pb.h>

#include <string_view>
#include <utility>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"

namespace rpc::conformance {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

void FillField(Message& message, const FieldDescriptor* field, int seed) {
  const Reflection& reflection = *message.GetReflection();
  switch (field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      return reflection.SetInt32(&message, field, seed + field->number());
    case FieldDescriptor::CPPTYPE_INT64:
      return reflection.SetInt64(&message, field, seed + field->number());
    case FieldDescriptor::CPPTYPE_BOOL:
      return reflection.SetBool(&message, field, true);
    case FieldDescriptor::CPPTYPE_STRING:
      return reflection.SetString(&message, field, std::to_string(seed));
    case FieldDescriptor::CPPTYPE_ENUM:
      return reflection.SetEnumValue(&message, field, 1);
    case FieldDescriptor::CPPTYPE_MESSAGE:
      return FillSample(*reflection.MutableMessage(&message, field), seed);
    default:
      return;
  }
}

// The window that a request is about: the request itself, or its browser_id.
int64_t WindowOf(const Message& request) {
  if (request.GetDescriptor() == BrowserId::descriptor())
    return static_cast<const BrowserId&>(request).value();
  const FieldDescriptor* field =
      request.GetDescriptor()->FindFieldByName("browser_id");
  return WindowOf(request.GetReflection()->GetMessage(request, field));
}

}  // namespace

void FillSample(Message& message, int seed) {
  for (int i = 0; i < message.GetDescriptor()->field_count(); ++i) {
    const FieldDescriptor* field = message.GetDescriptor()->field(i);
    if (!field->is_repeated())
      FillField(message, field, seed);
  }
}

void ScriptedService::CallMethod(
    const google::protobuf::MethodDescriptor* method,
    google::protobuf::RpcController* controller,
    const Message* request,
    Message* response,
    google::protobuf::Closure* done) {
  if (WindowOf(*request) == kUnimplemented) {
    return unimplemented_.CallMethod(method, controller, request, response,
                                     done);
  }
  EveryUnaryMethod::CallMethod(method, controller, request, response, done);
  const Call call = calls.back();
  calls.clear();
  Serve(call, method->index());
}

void ScriptedService::Serve(const Call& call, int method) {
  const std::string_view name = call.name;
  if (name == "SetTitle")
    return FollowTitle(static_cast<const WindowTitle&>(*call.request),
                       call.done);
  if (name == "GetTitle") {
    static_cast<google::protobuf::StringValue&>(*call.response)
        .set_value(titles_[WindowOf(*call.request)]);
    return call.done->Run();
  }
  if (name == "Close") {
    call.controller->SetFailed(kCloseFailure);
    return call.done->Run();
  }
  if (name == "Hide") {
    PublishClosed(WindowOf(*call.request));
    return call.done->Run();
  }

  const std::unique_ptr<Message> expected(call.request->New());
  FillSample(*expected, method);
  if (call.request->SerializeAsString() != expected->SerializeAsString()) {
    call.controller->SetFailed(
        "The request of " + std::string(name) +
        " is not what was sent: " + call.request->ShortDebugString());
  }
  FillSample(*call.response, method);
  call.done->Run();
}

void ScriptedService::FollowTitle(const WindowTitle& request,
                                  google::protobuf::Closure* done) {
  const int64_t window = request.browser_id().value();
  if (request.title() == "command")
    return Ask<CanExecuteCommand>(window, done);
  if (request.title() == "menu")
    return Ask<ShowContextMenu>(window, done);
  if (request.title() == "close")
    return Ask<CloseWindow>(window, done);
  if (request.title() == kWriteAroundReply)
    return WriteAroundReply(window, done);
  if (request.title() == kWriteAroundLateReply)
    return sequence_.Post(
        [this, window, done] { WriteAroundReply(window, done); });
  titles_[window] = request.title();
  done->Run();
}

void ScriptedService::PublishClosed(int64_t window) {
  BrowserWindowClosed event;
  *event.mutable_browser_id() = torvane::WindowId(window);
  torvane::EventStream<BrowserWindowClosed>::Publish(event.browser_id(), event);
}

void ScriptedService::WriteAroundReply(int64_t window,
                                       google::protobuf::Closure* done) {
  const auto write_about = [this](int64_t about) {
    PublishClosed(about);
    Ask<CloseWindow>(
        about, google::protobuf::NewCallback(&google::protobuf::DoNothing));
  };
  write_about(window);
  done->Run();
  write_about(window + 1);
}

template <typename T>
void ScriptedService::Ask(int64_t window, google::protobuf::Closure* done) {
  T question;
  *question.mutable_browser_id() = torvane::WindowId(window);
  FillSample(*question.mutable_question(), 1);
  const auto settle = [this, window, done](std::string how) {
    titles_[window] = std::move(how);
    done->Run();
  };
  const bool asked = torvane::CallbackStream<T>::Ask(
      question,
      {.response_callback =
           [settle](T& answer) {
             settle(answer.response().ShortDebugString());
           },
       .error_callback =
           [settle](torvane::StreamCallError error) {
             settle("error " + std::to_string(static_cast<int>(error)));
           }});
  if (!asked)
    settle("nobody");
}

}  // namespace rpc::conformance
