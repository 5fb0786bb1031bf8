#include "examples/web_browser/testing/x_session.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/loop.h"
#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/fence.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser {
namespace {

// How long anything may take to start before the test gives up.
constexpr int kPatienceMs = 30'000;
constexpr int kAskAgainMs = 20;

// A connection that looks at the session's display.
class Onlooker {
 public:
  explicit Onlooker(const std::string& display)
      : connection_(XOpenDisplay(display.c_str()), &XCloseDisplay) {
    ABSL_CHECK(connection_ != nullptr) << "no display " << display;
    desktop_ = std::make_unique<x11::Desktop>(connection_.get(), loop_);
  }

  // Asks again after each event.
  void WaitUntil(const std::function<bool()>& condition) {
    while (!condition()) {
      ABSL_CHECK(WaitForEvent(kPatienceMs)) << "nothing happens on the display";
    }
  }

  // Until the window manager answers. One that is starting loses what it is
  // asked, so it is asked again and again; and then until it has done it all:
  // the next connection may get the numbers of our windows.
  void WaitForAnswer() {
    x11::Fence fence(connection_.get());
    uint64_t last = fence.Send();
    for (int waited = 0; fence.passed() < last;) {
      if (const auto event = WaitForEvent(kAskAgainMs)) {
        fence.OnEvent(*event);
        continue;
      }
      waited += kAskAgainMs;
      ABSL_CHECK(waited < kPatienceMs) << "the window manager does not answer";
      last = fence.Send();
    }
  }

  bool IsManaged() const {
    return desktop_->HasWindowManager() &&
           !x11::PropertyQuery(connection_.get(), desktop_->root(),
                               desktop_->atoms().net_workarea)
                .Numbers()
                ->empty();
  }

  x11::Desktop& desktop() { return *desktop_; }

 private:
  std::optional<XEvent> WaitForEvent(int patience_ms) {
    if (XPending(connection_.get()) == 0) {
      pollfd connection{ConnectionNumber(connection_.get()), POLLIN, 0};
      if (poll(&connection, 1, patience_ms) != 1) {
        return std::nullopt;
      }
    }
    XEvent event;
    XNextEvent(connection_.get(), &event);
    return event;
  }

  rpc::loop::Loop loop_;
  const std::unique_ptr<Display, decltype(&XCloseDisplay)> connection_;
  std::unique_ptr<x11::Desktop> desktop_;
};

std::string ReadLine(int descriptor) {
  std::string line;
  char byte;
  pollfd waited{descriptor, POLLIN, 0};
  while (poll(&waited, 1, kPatienceMs) == 1 &&
         read(descriptor, &byte, 1) == 1) {
    if (byte == '\n') {
      return line;
    }
    line += byte;
  }
  return "";
}

std::vector<std::string> CommandOf(WindowManager window_manager) {
  switch (window_manager) {
    case WindowManager::kOpenbox:
      return {"openbox", "--sm-disable"};
    case WindowManager::kXfwm4:
      return {"xfwm4", "--compositor=off"};
  }
  return {};
}

}  // namespace

const char* NameOf(WindowManager window_manager) {
  return window_manager == WindowManager::kOpenbox ? "Openbox" : "Xfwm4";
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::vector<std::string>& environment,
                           int inherited) {
  std::vector<char*> texts;
  for (const std::string& argument : arguments) {
    texts.push_back(const_cast<char*>(argument.c_str()));
  }
  texts.push_back(nullptr);
  pid_ = fork();
  ABSL_PCHECK(pid_ >= 0);
  if (pid_ > 0) {
    return;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (const std::string& entry : environment) {
    putenv(const_cast<char*>(entry.c_str()));
  }
  if (inherited >= 0) {
    fcntl(inherited, F_SETFD, 0);
  }
  // What these programs grumble about concerns no test.
  const int nothing = open("/dev/null", O_RDWR);
  dup2(nothing, STDIN_FILENO);
  dup2(nothing, STDOUT_FILENO);
  dup2(nothing, STDERR_FILENO);
  execvp(texts[0], texts.data());
  _exit(127);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, 0)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  std::swap(pid_, other.pid_);
  return *this;
}

ChildProcess::~ChildProcess() {
  EndBy(SIGKILL);
}

void ChildProcess::Signal(int signal) const {
  ABSL_PCHECK(kill(pid_, signal) == 0);
}

bool ChildProcess::Wait() {
  int status = 0;
  ABSL_PCHECK(waitpid(pid_, &status, 0) == pid_);
  pid_ = 0;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void ChildProcess::EndBy(int signal) {
  if (pid_ == 0) {
    return;
  }
  Signal(signal);
  ABSL_PCHECK(waitpid(pid_, nullptr, 0) == pid_);
  pid_ = 0;
}

XSession::XSession(WindowManager window_manager, Monitors monitors)
    : window_manager_(window_manager) {
  if (monitors == Monitors::kOne) {
    StartServer({"Xvfb", "-screen", "0", "1280x800x24"});
  } else {
    StartServer(CommandOfTwoMonitors());
  }
  environment_ = {
      absl::StrCat("DISPLAY=", display_), absl::StrCat("HOME=", home_.path()),
      absl::StrCat("XDG_CONFIG_HOME=", home_.path()),
      absl::StrCat("XDG_CACHE_HOME=", home_.path()), "NO_AT_BRIDGE=1"};
  if (window_manager_ == WindowManager::kXfwm4) {
    StartBus();
  }
  StartWindowManager();
  if (monitors == Monitors::kTwo) {
    ChangeMonitors({"--output", "DUMMY0", "--primary"});
    ChangeMonitors({"--addmode", "DUMMY1", "1024x768"});
    PlugSecondMonitor();
  }
}

void XSession::StartServer(std::vector<std::string> command) {
  int ends[2];
  ABSL_PCHECK(pipe2(ends, O_CLOEXEC) == 0);
  // Tells the number of the display when it takes connections.
  command.insert(command.end(), {"-displayfd", absl::StrCat(ends[1]),
                                 "-nolisten", "tcp", "-noreset"});
  server_ = ChildProcess(command, {}, ends[1]);
  close(ends[1]);
  const std::string number = ReadLine(ends[0]);
  close(ends[0]);
  ABSL_CHECK(!number.empty()) << command[0] << " does not start";
  display_ = absl::StrCat(":", number);
}

std::vector<std::string> XSession::CommandOfTwoMonitors() const {
  return {"Xorg",
          "-config",
          TWO_MONITORS,
          "-logfile",
          home_.File("xorg.log"),
          "-novtswitch",
          "-sharevts"};
}

void XSession::ChangeMonitors(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "xrandr");
  ABSL_CHECK(ChildProcess(arguments, environment_).Wait())
      << "xrandr has failed";
  // The window manager is told of the monitors before it is asked. Asked twice:
  // it may look at them when it has nothing else to do.
  Onlooker onlooker(display_);
  onlooker.WaitForAnswer();
  onlooker.WaitForAnswer();
}

void XSession::UnplugSecondMonitor() {
  ChangeMonitors({"--output", "DUMMY1", "--off"});
}

void XSession::PlugSecondMonitor() {
  ChangeMonitors(
      {"--output", "DUMMY1", "--mode", "1024x768", "--pos", "1280x0"});
  // The server counts it as connected from the next time that somebody asks it
  // to look. Until then programs of GTK, as xfwm4 is, take no notice of it.
  ChangeMonitors({"--query"});
}

XSession::~XSession() = default;

// For the settings of xfwm4, without which it does not start.
void XSession::StartBus() {
  int ends[2];
  ABSL_PCHECK(pipe2(ends, O_CLOEXEC) == 0);
  bus_ = ChildProcess({"dbus-daemon", "--session", "--nofork",
                       absl::StrCat("--print-address=", ends[1])},
                      environment_, ends[1]);
  close(ends[1]);
  const std::string address = ReadLine(ends[0]);
  close(ends[0]);
  ABSL_CHECK(!address.empty()) << "dbus-daemon does not start";
  environment_.push_back(absl::StrCat("DBUS_SESSION_BUS_ADDRESS=", address));
}

void XSession::StartWindowManager() {
  Onlooker onlooker(display_);
  manager_ = ChildProcess(CommandOf(window_manager_), environment_);
  onlooker.WaitUntil([&] { return onlooker.IsManaged(); });
  // It says so before it is ready to answer.
  onlooker.WaitForAnswer();
}

void XSession::KillWindowManager() {
  Onlooker onlooker(display_);
  // Tells us when its window goes.
  const auto window =
      x11::PropertyQuery(onlooker.desktop().connection(),
                         onlooker.desktop().root(),
                         onlooker.desktop().atoms().net_supporting_wm_check)
          .Number();
  onlooker.desktop().Select(window.value_or(0), StructureNotifyMask);
  manager_.EndBy(SIGKILL);
  onlooker.WaitUntil([&] { return !onlooker.desktop().HasWindowManager(); });
}

// Now and then a window manager has the X server to itself for a moment.
// Stopped within it, it would keep everybody from the server, so another moment
// is chosen then.
void XSession::StopWindowManager() {
  while (true) {
    manager_.Signal(SIGSTOP);
    siginfo_t info;
    ABSL_PCHECK(waitid(P_PID, manager_.pid(), &info, WSTOPPED) == 0);
    if (ServerAnswers()) {
      return;
    }
    ContinueWindowManager();
    ABSL_CHECK(ServerAnswers()) << "the display hangs";
  }
}

bool XSession::ServerAnswers() const {
  return ChildProcess({"timeout", "2", "xprop", "-display", display_, "-root",
                       "_NET_SUPPORTING_WM_CHECK"},
                      {})
      .Wait();
}

void XSession::ContinueWindowManager() {
  manager_.Signal(SIGCONT);
}

void XSession::KillDisplay() {
  server_.EndBy(SIGKILL);
}

}  // namespace web_browser
