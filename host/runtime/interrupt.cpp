#include "runtime/interrupt.h"

#include <signal.h>

#include <atomic>
#include <cstring>
#include <string>

#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

std::atomic<int> g_signal{0};
static_assert(std::atomic<int>::is_always_lock_free, "the handler may only touch a lock-free atomic");

void OnSignal(int number) {
  int none = 0;
  g_signal.compare_exchange_strong(none, number);  // the first signal names the exit code
}

sigset_t HandledSet() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : kSignals) sigaddset(&set, s);
  return set;
}

}  // namespace

void InstallInterruptHandlers() {
  struct sigaction action {};
  action.sa_handler = &OnSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: blocking calls come back with EINTR
  for (int s : kSignals) sigaction(s, &action, nullptr);
}

int InterruptSignal() { return g_signal.load(); }

void ThrowIfInterrupted() {
  const int s = InterruptSignal();
  if (s == 0) return;
  const char* name = sigabbrev_np(s);
  throw HostError(std::string("interrupted by SIG") + (name ? name : std::to_string(s).c_str()));
}

int InterruptExitCode() { return 128 + InterruptSignal(); }

InterruptsHeld::InterruptsHeld() {
  const sigset_t set = HandledSet();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

InterruptsHeld::~InterruptsHeld() {
  const sigset_t set = HandledSet();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void ResetInterruptForTesting() { g_signal = 0; }

}  // namespace nimbo::host
