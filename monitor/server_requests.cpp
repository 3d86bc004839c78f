// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_requests.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "monitor/queue_client.h"
#include "monitor/server_messages.h"

namespace {

using std::chrono::milliseconds;

constexpr int PARENT = STDIN_FILENO;
constexpr int SERVE_ARGUMENTS = 6;

#ifdef BRENVELLIS_SANITIZE
constexpr rlim_t MAX_MEMORY = RLIM_INFINITY;  // Sanitizers reserve terabytes of address space.
#else
constexpr rlim_t MAX_MEMORY = 256U << 20U;
#endif
constexpr rlim_t MAX_FILES = 64;

void limit(decltype(RLIMIT_CORE) resource, rlim_t value) {
  rlimit limits{};
  getrlimit(resource, &limits);
  limits.rlim_max = std::min(limits.rlim_max, value);
  limits.rlim_cur = std::min(limits.rlim_cur, limits.rlim_max);
  setrlimit(resource, &limits);
}

/// Drops the rights that a process that reads untrusted bytes does not need.
void confine() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  prctl(PR_SET_DUMPABLE, 0);
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_NOFILE, MAX_FILES);
  limit(RLIMIT_AS, MAX_MEMORY);
#ifdef SYS_close_range
  syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
#endif
}

/// Reads exactly `size` bytes; returns false at the end.
bool read_all(char* bytes, std::size_t size) {
  while (size > 0) {
    const auto length = recv(PARENT, bytes, size, 0);
    if (length <= 0) {
      return false;
    }
    bytes += length;
    size -= static_cast<std::size_t>(length);
  }
  return true;
}

bool write_all(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto length = send(PARENT, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (length <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(length));
  }
  return true;
}

std::optional<SchedulerRequest> read_request() {
  std::string head(FRAME_BYTES, '\0');
  if (!read_all(head.data(), head.size())) {
    return std::nullopt;
  }
  const auto size = framed_size(head);
  if (!size || *size > MAX_REQUEST_BYTES) {
    return std::nullopt;
  }
  std::string message(*size, '\0');
  return read_all(message.data(), message.size()) ? decode_request(message) : std::nullopt;
}

/// Encodes the answer. An answer that is too large becomes an error.
std::string message_of(QueueClient& client, const SchedulerRequest& request) {
  const SchedulerError too_large{SchedulerError::Kind::InvalidAnswer, "its answer is too large"};
  try {
    const std::string message = encode(client.ask(request));
    return message.size() <= MAX_MESSAGE_BYTES ? message : encode(too_large);
  } catch (const std::bad_alloc&) {
    return encode(too_large);
  }
}

}  // namespace

std::optional<int> serve_requests(int argc, char** argv) {
  if (argc != SERVE_ARGUMENTS || std::string_view(argv[1]) != SERVE_OPTION) {
    return std::nullopt;
  }
  confine();
  const milliseconds connect_limit(std::atoi(argv[5]));
  QueueClient client({argv[2], std::atoi(argv[3])}, static_cast<http_encryption_t>(std::atoi(argv[4])),
                     connect_limit);
  try {
    while (const auto request = read_request()) {
      if (!write_all(frame(message_of(client, *request)))) {
        break;
      }
    }
  } catch (const std::exception&) {
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
