// The order of the generated class's virtual operations.

#include <gtest/gtest.h>

#include <cstddef>

#include "core/common/rpc/testing/virtual_slot.h"
#include "rpc/browser/browser_window.rpc.h"

namespace {

using torvane::kDestructorSlots;
using torvane::SlotOf;

TEST(BrowserWindowSlots, BeginWithThoseOfTheServiceBase) {
  EXPECT_EQ(SlotOf(&rpc::BrowserWindowRpc::GetDescriptor), kDestructorSlots);
  EXPECT_EQ(SlotOf(&rpc::BrowserWindowRpc::CallMethod), kDestructorSlots + 1);
  EXPECT_EQ(SlotOf(&rpc::BrowserWindowRpc::GetRequestPrototype),
            kDestructorSlots + 2);
  EXPECT_EQ(SlotOf(&rpc::BrowserWindowRpc::GetResponsePrototype),
            kDestructorSlots + 3);
  EXPECT_EQ(SlotOf(&rpc::BrowserWindowRpc::OpenStream), kDestructorSlots + 4);
}

TEST(BrowserWindowSlots, GoOnWithTheMethodsInTheOrderOfTheirIndices) {
  const ptrdiff_t slots[] = {
      SlotOf(&rpc::BrowserWindowRpc::Show),
      SlotOf(&rpc::BrowserWindowRpc::IsVisible),
      SlotOf(&rpc::BrowserWindowRpc::Hide),
      SlotOf(&rpc::BrowserWindowRpc::Activate),
      SlotOf(&rpc::BrowserWindowRpc::IsActive),
      SlotOf(&rpc::BrowserWindowRpc::Deactivate),
      SlotOf(&rpc::BrowserWindowRpc::Focus),
      SlotOf(&rpc::BrowserWindowRpc::Maximize),
      SlotOf(&rpc::BrowserWindowRpc::IsMaximized),
      SlotOf(&rpc::BrowserWindowRpc::Minimize),
      SlotOf(&rpc::BrowserWindowRpc::IsMinimized),
      SlotOf(&rpc::BrowserWindowRpc::Restore),
      SlotOf(&rpc::BrowserWindowRpc::EnterFullScreen),
      SlotOf(&rpc::BrowserWindowRpc::ExitFullScreen),
      SlotOf(&rpc::BrowserWindowRpc::IsFullScreen),
      SlotOf(&rpc::BrowserWindowRpc::Close),
      SlotOf(&rpc::BrowserWindowRpc::SetPosition),
      SlotOf(&rpc::BrowserWindowRpc::SetSize),
      SlotOf(&rpc::BrowserWindowRpc::SetBounds),
      SlotOf(&rpc::BrowserWindowRpc::GetBounds),
      SlotOf(&rpc::BrowserWindowRpc::CenterWindow),
      SlotOf(&rpc::BrowserWindowRpc::SetTitle),
      SlotOf(&rpc::BrowserWindowRpc::GetTitle),
      SlotOf(&rpc::BrowserWindowRpc::SetWindowTitleVisible),
      SlotOf(&rpc::BrowserWindowRpc::IsWindowTitleVisible),
      SlotOf(&rpc::BrowserWindowRpc::SetWindowTitlebarVisible),
      SlotOf(&rpc::BrowserWindowRpc::IsWindowTitlebarVisible),
      SlotOf(&rpc::BrowserWindowRpc::SetWindowButtonVisible),
      SlotOf(&rpc::BrowserWindowRpc::IsWindowButtonVisible),
      SlotOf(&rpc::BrowserWindowRpc::SetWindowStyleFlags),
      SlotOf(&rpc::BrowserWindowRpc::GetWindowStyleFlags),
      SlotOf(&rpc::BrowserWindowRpc::SetWindowDisplayPolicy),
      SlotOf(&rpc::BrowserWindowRpc::GetWindowDisplayPolicy),
      SlotOf(&rpc::BrowserWindowRpc::SetWindowAnimationBehavior),
      SlotOf(&rpc::BrowserWindowRpc::SetActivationIndependenceEnabled),
      SlotOf(&rpc::BrowserWindowRpc::IsActivationIndependenceEnabled),
      SlotOf(&rpc::BrowserWindowRpc::SetVibrancy),
      SlotOf(&rpc::BrowserWindowRpc::WhenBrowserWindowClosed),
      SlotOf(&rpc::BrowserWindowRpc::OnCanExecuteCommand),
      SlotOf(&rpc::BrowserWindowRpc::OnShowContextMenu),
      SlotOf(&rpc::BrowserWindowRpc::OnCloseWindow),
  };
  ptrdiff_t expected = kDestructorSlots + 5;
  for (const ptrdiff_t slot : slots)
    EXPECT_EQ(slot, expected++);
}

}  // namespace
