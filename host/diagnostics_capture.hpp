// --diagnostics: the service's log records travel with the reply of the request (or the
// notification) during which they were emitted.
//
// A Boost.Log sink on the service's channel hands each record to the emitting thread's current
// collection: the RequestCapture open on that thread, else the thread's own ambient list. Records
// are never matched to requests by text or by time, so requests served at once on several
// threads (one per front end) each get exactly their own.
//
// Notifications: the service's change listener first runs its flavors handler (which logs) and
// then calls the notification callback, all on the thread that emits the change (a backend's
// thread, or the thread of a request whose write emitted it). No capture of the host's can open
// around the listener, so the capture connects a listener of its own to the change signal before
// any service subscribes: signals call listeners in the order they were connected, so it runs
// first in every emission and marks where the emission's records begin in the thread's current
// collection. The notification callback then takes the records from that mark on
// (takeNotificationRecords), which leaves the records a request logged before its write emitted
// the change with the request's reply. Each further subscriber's callback in the same emission
// takes the records logged since the previous one took its own.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace clipboard_host {

// Installs the sink and the change listener for the life of the process's sessions; create it
// before any session subscribes. Enables the service's log level (standard error still shows
// only what --log asks for: the host's stream sink filters by level).
class DiagnosticsCapture {
 public:
  DiagnosticsCapture();
  ~DiagnosticsCapture();
  DiagnosticsCapture(DiagnosticsCapture const&) = delete;
  DiagnosticsCapture& operator=(DiagnosticsCapture const&) = delete;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

// While alive, the records emitted on this thread are collected here (captures nest: the
// enclosing one gets nothing meanwhile).
class RequestCapture {
 public:
  RequestCapture();
  ~RequestCapture();
  RequestCapture(RequestCapture const&) = delete;
  RequestCapture& operator=(RequestCapture const&) = delete;

  // The records collected so far, removed from the capture.
  std::vector<std::string> take();

 private:
  std::vector<std::string> records_;
  std::vector<std::string>* previous_;
  std::size_t previousMark_;
};

// From a notification callback: the records of this notification emitted on the calling thread.
std::vector<std::string> takeNotificationRecords();

// The most records one collection keeps; a last entry says how many more were dropped.
constexpr std::size_t kMaxCapturedRecords = 1000;

}  // namespace clipboard_host
