// The fake's threads, events and time. Time stands still: a finite wait
// blocks until its event is set or the test lets it time out, and threads
// start when the test says so or when someone waits for them.
#include "fakes/fake_platform.h"

#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "fakes/fake_arguments.h"

namespace kel::fakes {

void FakePlatform::StartThreadLocked(ThreadState& state) {
  if (state.started) return;
  state.started = true;
  ThreadState* raw = &state;
  state.thread = std::thread([this, raw] {
    raw->start(raw->parameter);
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    raw->finished = true;
    eventChanged_.notify_all();
  });
}

void FakePlatform::StartThreads() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  for (auto& [handle, state] : threads_) StartThreadLocked(*state);
}

void FakePlatform::GrantTimeouts(int count) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  grantedTimeouts_ += count;
  eventChanged_.notify_all();
}

bool FakePlatform::WaitForBlockedWaits(int count) {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  return eventChanged_.wait_for(lock, std::chrono::seconds(30), [&] { return blockedWaits_ >= count; });
}

bool FakePlatform::WaitForBlockedWaitsOrThreadsToFinish(int count) {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  return eventChanged_.wait_for(lock, std::chrono::seconds(30), [&] {
    if (blockedWaits_ >= count) return true;
    for (auto& [handle, state] : threads_) {
      if (state->started && !state->finished) return false;
    }
    return true;
  });
}

bool FakePlatform::WaitForThreadsToFinish() {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  return eventChanged_.wait_for(lock, std::chrono::seconds(30), [&] {
    for (auto& [handle, state] : threads_) {
      if (state->started && !state->finished) return false;
    }
    return true;
  });
}

void FakePlatform::GrantThreadWaitTimeouts(int count) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  grantedThreadWaitTimeouts_ += count;
  eventChanged_.notify_all();
}

void FakePlatform::StopThreads() {
  std::vector<std::thread*> toJoin;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    shuttingDown_ = true;  // also releases the threads held in package queries
    eventChanged_.notify_all();
    for (auto& [handle, state] : threads_) {
      if (state->thread.joinable()) toJoin.push_back(&state->thread);
    }
  }
  for (std::thread* thread : toJoin) thread->join();
}

void FakePlatform::SetLocalTime(const platform::SystemTime& t) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  time_ = t;
}

platform::SystemTime FakePlatform::GetLocalTime() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return time_;
}

void FakePlatform::Sleep(DWORD milliseconds) {
  Record("Sleep", Arg(milliseconds));
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  sleeps_.push_back(milliseconds);
}

Handle FakePlatform::CreateEvent(bool manualReset, bool initialState, const WCHAR* name) {
  Record("CreateEvent",
         Arg(static_cast<DWORD>(manualReset)) + ", " + Arg(static_cast<DWORD>(initialState)) + ", " + Arg(name));
  if (Inject()) {
    lastError_ = ERROR_ACCESS_DENIED;
    return nullptr;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (createEventFails) {
    lastError_ = 6;  // ERROR_INVALID_HANDLE: the name is taken by another kind of object
    return nullptr;
  }
  Handle h = NewHandle();
  events_[h] = Event{manualReset, initialState};
  return h;
}

BOOL FakePlatform::SetEvent(Handle event) { return ChangeEvent("SetEvent", event, true); }

BOOL FakePlatform::ResetEvent(Handle event) { return ChangeEvent("ResetEvent", event, false); }

// A set wakes the waits; a reset has nobody to wake.
BOOL FakePlatform::ChangeEvent(const char* call, Handle event, bool signalled) {
  Record(call, "");
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = events_.find(event);
  if (it == events_.end()) {
    ++staleHandleUses_;
    return 0;
  }
  it->second.signalled = signalled;
  if (signalled) eventChanged_.notify_all();
  return 1;
}

DWORD FakePlatform::WaitForSingleObject(Handle object, DWORD milliseconds) {
  Record("WaitForSingleObject", Arg(milliseconds));
  if (Inject()) {
    return platform::WAIT_FAILED;
  }
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  auto thread = threads_.find(object);
  if (thread != threads_.end()) {
    ThreadState& state = *thread->second;
    StartThreadLocked(state);
    auto finished = [&] { return state.finished; };
    if (milliseconds == platform::INFINITE) {
      eventChanged_.wait(lock, finished);
      return platform::WAIT_OBJECT_0;
    }
    eventChanged_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                           [&] { return finished() || grantedThreadWaitTimeouts_ > 0; });
    if (finished()) return platform::WAIT_OBJECT_0;
    if (grantedThreadWaitTimeouts_ > 0) --grantedThreadWaitTimeouts_;
    return platform::WAIT_TIMEOUT;
  }
  if (events_.count(object) == 0) {
    ++staleHandleUses_;
    return platform::WAIT_FAILED;
  }
  auto signalled = [&] { return events_.count(object) != 0 && events_[object].signalled; };
  if (!signalled()) {
    if (milliseconds == 0) return platform::WAIT_TIMEOUT;
    if (!finiteWaitsBlock && milliseconds != platform::INFINITE) return platform::WAIT_TIMEOUT;
    // Time stands still: the wait ends when the event is set, when the test
    // lets one wait time out, or when the fake shuts down.
    ++blockedWaits_;
    eventChanged_.notify_all();
    eventChanged_.wait(lock, [&] {
      return signalled() || shuttingDown_ || events_.count(object) == 0 ||
             (milliseconds != platform::INFINITE && grantedTimeouts_ > 0);
    });
    if (events_.count(object) == 0 || (shuttingDown_ && !signalled())) return platform::WAIT_FAILED;
    if (!signalled()) {
      --grantedTimeouts_;
      return platform::WAIT_TIMEOUT;
    }
  }
  if (!events_[object].manualReset) events_[object].signalled = false;
  return platform::WAIT_OBJECT_0;
}

Handle FakePlatform::CreateThread(platform::ThreadProc start, void* parameter) {
  Record("CreateThread", "");
  if (Inject()) {
    lastError_ = 8;
    return nullptr;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (createThreadFails) return nullptr;
  Handle h = NewHandle();
  auto state = std::make_unique<ThreadState>();
  state->start = start;
  state->parameter = parameter;
  ThreadState& created = *state;
  threads_[h] = std::move(state);
  if (!deferThreads) StartThreadLocked(created);
  return h;
}

}  // namespace kel::fakes
