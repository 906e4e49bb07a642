// Threads that leave the process's signals to its other threads.
#pragma once

#include <pthread.h>

#include <csignal>

namespace keldane {

/// Blocks all signals on the calling thread for as long as it lives, so that a thread that is started in its
/// scope has them blocked from its first instruction on. Every thread that runs inside a host is started this
/// way: the host's signals are for the host, whose handlers may only work on its own threads, and a signal
/// that arrived on such a thread would interrupt its system calls.
///
/// A program that is started on such a thread inherits the mask. Whoever starts one gives it another.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace keldane
