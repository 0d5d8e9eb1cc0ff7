// Waiting for a child process the tests started, with a bound.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>

namespace test_support {

// Reaps `pid` once it has exited: its exit status (-1 when a signal ended it or it was not our
// child), or nothing when it still runs after `timeout`.
std::optional<int> waitForExit(pid_t pid, std::chrono::milliseconds timeout);

}  // namespace test_support
