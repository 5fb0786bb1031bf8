// A display of a test's own: an X server without hardware and a window manager,
// as processes.
//
//   XSession session(WindowManager::kOpenbox);
//   Display* display = XOpenDisplay(session.display().c_str());
//
// It is ready when the constructor returns: the window manager manages windows
// and has said what their work area is.
//
// Ownership: of the processes and of a private folder that the window manager
// takes for its home; all end with this object, or with the thread that made
// it.
//
// Failure: what does not start ends the test's process.

#ifndef EXAMPLES_WEB_BROWSER_TESTING_X_SESSION_H_
#define EXAMPLES_WEB_BROWSER_TESTING_X_SESSION_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "core/common/rpc/testing/private_folder.h"

namespace web_browser {

enum class WindowManager { kOpenbox, kXfwm4 };

enum class Monitors {
  // 1280 x 800. Served by Xvfb.
  kOne,
  // 1280 x 1024, and to the right of it 1024 x 768. Served by Xorg with its
  // driver without hardware, since Xvfb has one only; must be started by root.
  // For openbox: xfwm4 takes note of the second one too late.
  kTwo
};

// What it calls itself on the display.
const char* NameOf(WindowManager window_manager);

// A program as a process.
class ChildProcess {
 public:
  // None.
  ChildProcess() = default;
  // `environment` has entries like "NAME=value", besides our own environment.
  // `inherited` is a descriptor that the program gets; -1 for none.
  ChildProcess(const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment,
               int inherited = -1);
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&& other) noexcept;
  // Kills it.
  ~ChildProcess();

  // Sends it a signal; returns at once.
  void Signal(int signal) const;
  // Sends it a signal that ends it, and waits until it has.
  void EndBy(int signal);
  // Waits until it has ended by itself; returns whether it has succeeded.
  bool Wait();

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = 0;
};

class XSession {
 public:
  explicit XSession(WindowManager window_manager,
                    Monitors monitors = Monitors::kOne);
  XSession(const XSession&) = delete;
  XSession& operator=(const XSession&) = delete;
  ~XSession();

  // Such as ":7".
  const std::string& display() const { return display_; }

  // Starts it, and waits until it is ready.
  void StartWindowManager();
  // Kills it, and waits until the display has none.
  void KillWindowManager();
  // It hangs until it is continued, while the X server goes on.
  void StopWindowManager();
  void ContinueWindowManager();

  // Unplugs the second of two monitors, and plugs it in again. The window
  // manager has noticed when this returns, if it is openbox; other programs may
  // not have.
  void UnplugSecondMonitor();
  void PlugSecondMonitor();

  // As when the X server crashes.
  void KillDisplay();

 private:
  // Starts an X server, and waits until it takes connections.
  void StartServer(std::vector<std::string> command);
  std::vector<std::string> CommandOfTwoMonitors() const;
  // Runs xrandr with these arguments.
  void ChangeMonitors(std::vector<std::string> arguments);
  void StartBus();
  // Whether it does within two seconds.
  bool ServerAnswers() const;

  const WindowManager window_manager_;
  const torvane::PrivateFolder home_;
  std::string display_;
  // Of the programs on the display.
  std::vector<std::string> environment_;
  ChildProcess server_;
  ChildProcess bus_;
  ChildProcess manager_;
};

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_TESTING_X_SESSION_H_
