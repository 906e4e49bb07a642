// Starting of threads that receive none of the process's signals.
#pragma once

#include <pthread.h>

#include <csignal>

namespace keldane {

/// Blocks all signals on the calling thread for as long as this object lives. A thread that is started in its
/// scope has them blocked from its first instruction on. Every thread that runs inside a host is started this
/// way. The host's signals belong to the host, whose handlers may work only on its own threads, and a signal
/// would interrupt the thread's system calls.
///
/// A program that is started on such a thread inherits the mask, so the code that starts a program must reset
/// it.
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
