#include "monitor/refresh_client.h"

#include <netdb.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// What a request that runs when the user ends the program still gets: enough for a server that works.
constexpr milliseconds LAST_MOMENT{500};
/// What all requests after that get together: time to cancel the jobs.
constexpr milliseconds LAST_WORDS{3000};

constexpr const char* JOB_NAME = "brenvellis-monitor";
constexpr std::string_view COMMAND_FILE = "#CUPS-COMMAND\nReportLevels\n";

/// Descriptor is an open file that is closed when it goes.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) {
      close(number_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return number_; }

 private:
  int number_;
};

std::string queue_uri(const std::string& queue) {
  std::array<char, HTTP_MAX_URI> uri{};
  httpAssembleURIf(HTTP_URI_CODING_ALL, uri.data(), uri.size(), "ipp", nullptr, "localhost", 0,
                   "/printers/%s", queue.c_str());
  return uri.data();
}

/// The path of the same URI, to which a job is sent.
std::string queue_resource(const std::string& queue) {
  return queue_uri(queue).substr(std::string_view("ipp://localhost").size());
}

/// The queue's name in the URI of a job's printer.
std::string queue_of(const char* uri) {
  std::array<char, HTTP_MAX_URI> scheme{};
  std::array<char, HTTP_MAX_URI> user{};
  std::array<char, HTTP_MAX_URI> host{};
  std::array<char, HTTP_MAX_URI> path{};
  int port = 0;
  if (uri == nullptr ||
      httpSeparateURI(HTTP_URI_CODING_ALL, uri, scheme.data(), scheme.size(), user.data(), user.size(),
                      host.data(), host.size(), &port, path.data(), path.size()) < HTTP_URI_STATUS_OK) {
    return {};
  }
  const std::string resource = path.data();
  return resource.substr(resource.rfind('/') + 1);
}

ipp_t* new_request(ipp_op_t operation, const std::string& uri) {
  ipp_t* request = ippNewRequest(operation);
  if (!uri.empty()) {
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri.c_str());
  }
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
  return request;
}

void add_wanted(ipp_t* request, const std::vector<const char*>& attributes) {
  ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                static_cast<int>(attributes.size()), nullptr, attributes.data());
}

/// The attributes of the jobs in an answer to Get-Jobs, a job at a time.
template <typename Visit>
void for_each_job(ipp_t* answer, const Visit& visit) {
  ipp_attribute_t* attribute = ippFirstAttribute(answer);
  while (attribute != nullptr) {
    std::map<std::string, ipp_attribute_t*> job;
    while (attribute != nullptr && ippGetGroupTag(attribute) == IPP_TAG_JOB) {
      if (const char* name = ippGetName(attribute)) {
        job[name] = attribute;
      }
      attribute = ippNextAttribute(answer);
    }
    if (!job.empty()) {
      visit(job);
    } else if (attribute != nullptr) {
      attribute = ippNextAttribute(answer);
    }
  }
}

int connect_once(int family, const sockaddr* address, socklen_t length) {
  constexpr milliseconds limit(500);
  const Descriptor socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket.get() < 0 || connect(socket.get(), address, length) == 0) {
    return 0;
  }
  if (errno != EINPROGRESS) {
    return errno;
  }
  pollfd wait{socket.get(), POLLOUT, 0};
  int error = 0;
  socklen_t size = sizeof error;
  if (poll(&wait, 1, static_cast<int>(limit.count())) == 1) {
    getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  }
  return error;
}

/// Why no connection comes about, as errno; 0 if one does or it cannot be told in a moment. The CUPS library
/// calls every reason a host that is down.
int connection_error(const ServerName& server) {
  if (server.host.starts_with('/')) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (server.host.size() >= sizeof address.sun_path) {
      return ENAMETOOLONG;
    }
    server.host.copy(address.sun_path, server.host.size());
    return connect_once(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  if (getaddrinfo(server.host.c_str(), std::to_string(server.port).c_str(), &hints, &first) != 0) {
    return 0;
  }
  int error = 0;
  for (const addrinfo* one = first; one != nullptr && error == 0; one = one->ai_next) {
    error = connect_once(one->ai_family, one->ai_addr, one->ai_addrlen);
  }
  freeaddrinfo(first);
  return error;
}

}  // namespace

RefreshClient::RefreshClient(ServerName server, http_encryption_t encryption, seconds patience,
                             StopRequest& stop)
    : server_(std::move(server)), encryption_(encryption), patience_(patience), stop_(stop) {
  // Nobody may be there to answer: a question for a password would stop everything.
  cupsSetPasswordCB2(
      [](const char*, http_t*, const char*, const char*, void*) -> const char* { return nullptr; }, nullptr);
}

int RefreshClient::may_wait_longer(http_t* /*connection*/, void* client) {
  return static_cast<const RefreshClient*>(client)->given_up_ ? 0 : 1;
}

void RefreshClient::finish_within(milliseconds limit) {
  finish_at_ = std::min(finish_at_, steady_clock::now() + limit);
}

/// The CUPS library only asks whether to wait longer while nothing comes: a server that sends a byte now and
/// then would keep it for ever. So somebody else looks at the clock, until the returned thread is ended.
std::jthread RefreshClient::watch(steady_clock::time_point limit) {
  return std::jthread([this, limit, ends_on_stop = stop_.signal == 0](const std::stop_token& ended) {
    constexpr milliseconds glance(50);
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any wake;
    auto last = limit;
    bool stopping = false;
    while (!ended.stop_requested()) {
      const auto now = steady_clock::now();
      if (ends_on_stop && stop_.signal != 0 && !stopping) {
        stopping = true;
        last = std::min(limit, now + LAST_MOMENT);
      }
      if (now >= last) {
        given_up_ = true;
        // Again and again, since the library may connect anew.
        shutdown(httpGetFd(connection_.get()), SHUT_RDWR);
      }
      wake.wait_for(lock, ended, glance, [] { return false; });
    }
  });
}

bool RefreshClient::connect() {
  const int limit = static_cast<int>(std::chrono::milliseconds(patience_).count());
  // The change to TLS waits for an answer, which needs somebody who looks at the clock.
  const bool changes = encryption_ == HTTP_ENCRYPTION_REQUIRED;
  connection_.reset(httpConnect2(server_.host.c_str(), server_.port, nullptr, AF_UNSPEC,
                                 changes ? HTTP_ENCRYPTION_IF_REQUESTED : encryption_, 1, limit,
                                 &stop_.connecting));
  if (!connection_) {
    const int error = connection_error(server_);
    error_ =
        std::string("it cannot be reached: ") + (error != 0 ? std::strerror(error) : cupsLastErrorString());
    return false;
  }
  httpSetTimeout(connection_.get(), 0.5, may_wait_longer, this);
  if (changes) {
    const auto watchdog = watch(steady_clock::now() + patience_);
    if (httpEncryption(connection_.get(), encryption_) != 0) {
      error_ = given_up_ ? why_no_answer() : std::string("it cannot be reached: ") + cupsLastErrorString();
      return false;
    }
  }
  return true;
}

RefreshClient::Answer RefreshClient::ask(ipp_t* request, const std::string& resource, int document) {
  const auto now = steady_clock::now();
  if (stop_.signal != 0 && !stopped_) {
    stopped_ = true;
    finish_at_ = std::min(finish_at_, now + LAST_WORDS);
  }
  const auto limit = std::min(now + patience_, finish_at_);
  answered_ = false;
  given_up_ = now >= limit;
  Answer answer;
  if (given_up_) {
    ippDelete(request);
  } else {
    const auto watchdog = watch(limit);
    answer.reset(cupsDoIORequest(connection_.get(), request, resource.c_str(), document, -1));
  }
  answered_ = answer != nullptr;
  if (!answer) {
    error_ = why_no_answer();
  } else if (cupsLastError() > IPP_STATUS_OK_EVENTS_COMPLETE) {
    error_ = cupsLastErrorString();
    answer.reset();
  }
  return answer;
}

std::string RefreshClient::why_no_answer() const {
  if (given_up_) {
    return stop_.signal != 0 ? "ended before it answered"
                             : "no answer within " + std::to_string(patience_.count()) +
                                   (patience_ == seconds(1) ? " second" : " seconds");
  }
  if (httpGetStatus(connection_.get()) >= HTTP_STATUS_BAD_REQUEST) {
    return cupsLastErrorString();
  }
  const int error = connection_error(server_);
  return error != 0 ? std::strerror(error) : "it does not answer as a print server";
}

std::optional<std::vector<Reading>> RefreshClient::read_queues() {
  ipp_t* request = new_request(IPP_OP_CUPS_GET_PRINTERS, "");
  add_wanted(request, reading_attributes());
  const auto answer = ask(request, "/");
  if (answer) {
    return ::read_queues(answer.get());
  }
  if (answered_ && cupsLastError() == IPP_STATUS_ERROR_NOT_FOUND) {
    return std::vector<Reading>{};  // its way to say that it has no queue
  }
  return std::nullopt;
}

std::optional<std::map<std::string, int>> RefreshClient::count_print_jobs() {
  ipp_t* request = new_request(IPP_OP_GET_JOBS, "ipp://localhost/printers/");
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "which-jobs", nullptr, "not-completed");
  add_wanted(request, {"job-id", "job-printer-uri", "job-state", "document-format"});
  const auto answer = ask(request, "/");
  if (!answer) {
    return std::nullopt;
  }
  std::map<std::string, int> count;
  for_each_job(answer.get(), [&](auto& job) {
    const char* format = ippGetString(job["document-format"], 0, nullptr);
    const int state = ippGetInteger(job["job-state"], 0);
    const bool moves = state == IPP_JSTATE_PENDING || state == IPP_JSTATE_PROCESSING;
    if (moves && (format == nullptr || std::string_view(format) != CUPS_FORMAT_COMMAND)) {
      ++count[queue_of(ippGetString(job["job-printer-uri"], 0, nullptr))];
    }
  });
  return count;
}

std::optional<int> RefreshClient::send_report_levels(const std::string& queue, seconds lifetime) {
  const Descriptor document(memfd_create("ReportLevels", MFD_CLOEXEC));
  if (write(document.get(), COMMAND_FILE.data(), COMMAND_FILE.size()) !=
      static_cast<ssize_t>(COMMAND_FILE.size())) {
    error_ = "no memory for the command file";
    return std::nullopt;
  }
  ipp_t* request = new_request(IPP_OP_PRINT_JOB, queue_uri(queue));
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr, JOB_NAME);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr, CUPS_FORMAT_COMMAND);
  ippAddInteger(request, IPP_TAG_JOB, IPP_TAG_INTEGER, "job-cancel-after",
                static_cast<int>(lifetime.count()));
  const auto answer = ask(request, queue_resource(queue), document.get());
  ipp_attribute_t* job = ippFindAttribute(answer.get(), "job-id", IPP_TAG_INTEGER);
  if (job == nullptr) {
    return std::nullopt;
  }
  return ippGetInteger(job, 0);
}

std::optional<std::map<int, ipp_jstate_t>> RefreshClient::job_states(int first) {
  ipp_t* request = new_request(IPP_OP_GET_JOBS, "ipp://localhost/printers/");
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "which-jobs", nullptr, "all");
  ippAddInteger(request, IPP_TAG_OPERATION, IPP_TAG_INTEGER, "first-job-id", first);
  ippAddBoolean(request, IPP_TAG_OPERATION, "my-jobs", 1);
  add_wanted(request, {"job-id", "job-state"});
  const auto answer = ask(request, "/");
  if (!answer) {
    return std::nullopt;
  }
  std::map<int, ipp_jstate_t> states;
  for_each_job(answer.get(), [&](auto& job) {
    states[ippGetInteger(job["job-id"], 0)] = static_cast<ipp_jstate_t>(ippGetInteger(job["job-state"], 0));
  });
  return states;
}

bool RefreshClient::cancel(const std::string& queue, int job, bool by_force) {
  ipp_t* request = new_request(IPP_OP_CANCEL_JOB, queue_uri(queue));
  ippAddInteger(request, IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", job);
  if (by_force) {
    ippAddBoolean(request, IPP_TAG_OPERATION, "purge-job", 1);
  }
  return ask(request, "/jobs/") != nullptr;
}
