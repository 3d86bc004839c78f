// SPDX-License-Identifier: Apache-2.0
#include "monitor/queue_client.h"

#include <netdb.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "monitor/server_messages.h"

namespace {

using Kind = SchedulerError::Kind;

constexpr const char* JOB_NAME = "brenvellis-monitor";
/// The longest answer that is read: some 50,000 queues.
constexpr std::size_t MAX_ANSWER_BYTES = 64U << 20U;
constexpr const char* NOT_IPP = "it does not answer as a print server";

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

/// Returns the path of the queue's URI, to which jobs are sent.
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
  return resource.substr(resource.rfind('/') + 1, MAX_TEXT_BYTES);
}

QueueClient::Message new_request(ipp_op_t operation, const std::string& uri) {
  QueueClient::Message request(ippNewRequest(operation));
  if (!uri.empty()) {
    ippAddString(request.get(), IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri.c_str());
  }
  ippAddString(request.get(), IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
  return request;
}

void add_wanted(ipp_t* request, const std::vector<const char*>& attributes) {
  ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                static_cast<int>(attributes.size()), nullptr, attributes.data());
}

std::optional<int> number_of(ipp_attribute_t* attribute) {
  const auto tag = ippGetValueTag(attribute);
  if ((tag != IPP_TAG_INTEGER && tag != IPP_TAG_ENUM) || ippGetCount(attribute) < 1) {
    return std::nullopt;
  }
  return ippGetInteger(attribute, 0);
}

const std::vector<const char*>& job_attributes() {
  static const std::vector<const char*> names = {
      "job-id",
      "job-printer-uri",
      "job-state",
      "job-state-reasons",
      "document-format",
      "job-originating-user-name",
      "job-printer-up-time",
      "time-at-processing",
      "job-media-sheets-completed",
      "job-impressions-completed",
  };
  return names;
}

Job read_job(std::map<std::string_view, ipp_attribute_t*>& attributes) {
  Job job;
  job.number = number_of(attributes["job-id"]).value_or(0);
  job.queue = queue_of(ippGetString(attributes["job-printer-uri"], 0, nullptr));
  const char* format = ippGetString(attributes["document-format"], 0, nullptr);
  job.is_command = format != nullptr && std::string_view(format) == CUPS_FORMAT_COMMAND;
  const char* user = ippGetString(attributes["job-originating-user-name"], 0, nullptr);
  job.is_own = user != nullptr && strcasecmp(user, cupsUser()) == 0;
  const int state = number_of(attributes["job-state"]).value_or(0);
  if (state >= IPP_JSTATE_PENDING && state <= IPP_JSTATE_COMPLETED) {
    job.state = static_cast<ipp_jstate_t>(state);
  }
  const int now = number_of(attributes["job-printer-up-time"]).value_or(0);
  const int began = number_of(attributes["time-at-processing"]).value_or(0);
  if (began > 0 && now > 0) {
    job.processing_seconds = std::max(0, now - began);
    // RFC 8011 allows this reason for a job that only waits for a stopped queue, too.
    job.stopped_queue = ippContainsString(attributes["job-state-reasons"], "printer-stopped") != 0;
  }
  // Filters count one or the other.
  const auto sheets = number_of(attributes["job-media-sheets-completed"]);
  const auto sides = number_of(attributes["job-impressions-completed"]);
  job.sheets_completed = std::max(sheets, sides);
  return job;
}

/// Reads the jobs of an answer to Get-Jobs on top of those in `jobs`.
void add_jobs(ipp_t* answer, std::map<int, Job>& jobs) {
  ipp_attribute_t* attribute = ippFirstAttribute(answer);
  while (attribute != nullptr) {
    std::map<std::string_view, ipp_attribute_t*> job;
    for (; attribute != nullptr && ippGetGroupTag(attribute) == IPP_TAG_JOB;
         attribute = ippNextAttribute(answer)) {
      if (const char* name = ippGetName(attribute)) {
        job[name] = attribute;
      }
    }
    if (!job.empty()) {
      auto read = read_job(job);
      jobs[read.number] = std::move(read);
    } else if (attribute != nullptr) {
      attribute = ippNextAttribute(answer);
    }
  }
}

int connect_once(int family, const sockaddr* address, socklen_t length) {
  constexpr int limit_ms = 500;
  const Descriptor socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket.get() < 0 || connect(socket.get(), address, length) == 0) {
    return 0;
  }
  if (errno != EINPROGRESS) {
    return errno;
  }
  pollfd wait{socket.get(), POLLOUT, 0};
  int error = ETIMEDOUT;
  socklen_t size = sizeof error;
  if (poll(&wait, 1, limit_ms) == 1) {
    getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  }
  return error;
}

/// Returns why the connection fails, as errno; 0 if it succeeds. The CUPS library reports all failures as a
/// host that is down.
int connection_error(const ServerName& server) {
  if (server.host.starts_with('/')) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (server.host.size() >= sizeof address.sun_path) {
      return ENAMETOOLONG;
    }
    server.host.copy(static_cast<char*>(address.sun_path), server.host.size());
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

/// Returns the kind of a refusal from its IPP status.
Kind kind_of(ipp_status_t status, ipp_op_t operation) {
  switch (status) {
    case IPP_STATUS_ERROR_FORBIDDEN:
    case IPP_STATUS_ERROR_NOT_AUTHORIZED:
      return Kind::Forbidden;
    case IPP_STATUS_ERROR_NOT_AUTHENTICATED:
    case IPP_STATUS_ERROR_CUPS_AUTHENTICATION_CANCELED:
      return Kind::Unauthorized;
    case IPP_STATUS_ERROR_CUPS_UPGRADE_REQUIRED:
    case IPP_STATUS_ERROR_CUPS_PKI:
      return Kind::NeedsEncryption;
    case IPP_STATUS_ERROR_NOT_FOUND:
    case IPP_STATUS_ERROR_GONE:
      return Kind::NotFound;
    case IPP_STATUS_ERROR_BUSY:
    case IPP_STATUS_ERROR_TOO_MANY_JOBS:
    case IPP_STATUS_ERROR_SERVICE_UNAVAILABLE:
      return Kind::Busy;
    case IPP_STATUS_ERROR_NOT_POSSIBLE:
      // CUPS reports this if a limit on jobs is reached.
      return operation == IPP_OP_PRINT_JOB ? Kind::Busy : Kind::Refused;
    default:
      return Kind::Refused;
  }
}

/// Sends the request and the document; the status of the answer, of which the connection has the head.
http_status_t send(http_t* http, ipp_t* request, const std::string& resource, std::string_view document) {
  auto status = cupsSendRequest(http, request, resource.c_str(), ippLength(request) + document.size());
  const auto is_sent = [&] { return status == HTTP_STATUS_OK || status == HTTP_STATUS_CONTINUE; };
  if (is_sent() && !document.empty()) {
    status = cupsWriteRequestData(http, document.data(), document.size());
  }
  if (is_sent()) {
    do {
      status = httpUpdate(http);
    } while (status == HTTP_STATUS_CONTINUE);
  }
  return status;
}

/// The body of an answer; nothing if it is too long.
std::optional<std::string> read_body(http_t* http) {
  constexpr std::size_t step = 65536;
  std::string body;
  for (;;) {
    const std::size_t size = body.size();
    body.resize(size + step);
    const auto length = httpRead2(http, body.data() + size, step);
    body.resize(size + (length > 0 ? static_cast<std::size_t>(length) : 0));
    if (length <= 0) {
      return body;
    }
    if (body.size() > MAX_ANSWER_BYTES) {
      return std::nullopt;
    }
  }
}

/// The IPP message of these bytes, which belongs to the caller. The library itself would read them from the
/// connection by twos and threes.
ipp_t* parsed(std::string_view bytes) {
  const auto take = [](void* context, ipp_uchar_t* buffer, size_t length) {
    auto& rest = *static_cast<std::string_view*>(context);
    length = rest.copy(reinterpret_cast<char*>(buffer), length);
    rest.remove_prefix(length);
    return static_cast<ssize_t>(length);
  };
  ipp_t* message = ippNew();
  auto state = IPP_STATE_IDLE;
  while (state != IPP_STATE_DATA && state != IPP_STATE_ERROR) {
    state = ippReadIO(&bytes, take, 1, nullptr, message);
  }
  if (state == IPP_STATE_ERROR) {
    ippDelete(message);
    message = nullptr;
  }
  return message;
}

/// An error with a text that the server may have chosen.
SchedulerError error_of(Kind kind, const char* text) {
  return {kind, text == nullptr ? "" : std::string(text, strnlen(text, MAX_TEXT_BYTES))};
}

}  // namespace

QueueClient::QueueClient(ServerName server, http_encryption_t encryption,
                         std::chrono::milliseconds connect_limit)
    : server_(std::move(server)), encryption_(encryption), connect_limit_(connect_limit) {
  // Do not prompt for a password, because there may be no user.
  cupsSetPasswordCB2(
      [](const char*, http_t*, const char*, const char*, void*) -> const char* { return nullptr; }, nullptr);
}

SchedulerAnswer QueueClient::ask(const SchedulerRequest& request) {
  return std::visit([this](const auto& one) { return ask_for(one); }, request);
}

bool QueueClient::connect() {
  // The server has closed the connection, or sent unrequested data.
  pollfd idle{connection_ ? httpGetFd(connection_.get()) : -1, POLLIN, 0};
  if (poll(&idle, 1, 0) != 0) {
    connection_.reset();
  }
  if (connection_) {
    return true;
  }
  has_looked_ = false;
  // Connect without TLS first if TLS is an upgrade, to distinguish "no connection" from "no TLS".
  const bool upgrades = encryption_ == HTTP_ENCRYPTION_REQUIRED;
  connection_.reset(httpConnect2(server_.host.c_str(), server_.port, nullptr, AF_UNSPEC,
                                 upgrades ? HTTP_ENCRYPTION_IF_REQUESTED : encryption_, 1,
                                 static_cast<int>(connect_limit_.count()), nullptr));
  if (!connection_) {
    const std::string said = cupsLastErrorString();
    const int error = connection_error(server_);
    const bool no_tls = error == 0 && encryption_ == HTTP_ENCRYPTION_ALWAYS;
    error_ = error_of(no_tls ? Kind::NeedsEncryption : Kind::Unreachable,
                      error != 0 ? std::strerror(error) : said.c_str());
    return false;
  }
  if (upgrades && httpEncryption(connection_.get(), encryption_) != 0) {
    error_ = error_of(Kind::NeedsEncryption, cupsLastErrorString());
    connection_.reset();
    return false;
  }
  return true;
}

/// Sends the request and then the document, and waits for the answer; nothing (and error_) on failure.
QueueClient::Message QueueClient::exchange(const Message& request, const std::string& resource,
                                           std::string_view document) {
  constexpr int attempts = 3;
  auto status = HTTP_STATUS_ERROR;
  bool upgrades = false;
  for (int i = 0; i < attempts; ++i) {
    if (!connect()) {
      return {};
    }
    http_t* http = connection_.get();
    status = send(http, request.get(), resource, document);
    if (status == HTTP_STATUS_OK) {
      return take_answer(ippGetOperation(request.get()));
    }
    // The server may want to know who asks, which a local one can see, or TLS.
    httpFlush(http);
    upgrades = upgrades || status == HTTP_STATUS_UPGRADE_REQUIRED;
    const bool retries =
        (status == HTTP_STATUS_UNAUTHORIZED && cupsDoAuthentication(http, "POST", resource.c_str()) == 0) ||
        status == HTTP_STATUS_UPGRADE_REQUIRED;
    if (!retries || httpReconnect2(http, static_cast<int>(connect_limit_.count()), nullptr) != 0 ||
        (upgrades && httpEncryption(http, HTTP_ENCRYPTION_REQUIRED) != 0)) {
      break;
    }
  }
  error_ = why_no_answer(upgrades && status == HTTP_STATUS_ERROR ? HTTP_STATUS_UPGRADE_REQUIRED : status);
  connection_.reset();
  return {};
}

/// Reads the answer, of which the connection has the head.
QueueClient::Message QueueClient::take_answer(ipp_op_t operation) {
  const auto body = read_body(connection_.get());
  Message answer(body ? parsed(*body) : nullptr);
  if (!answer) {
    error_ = body ? why_no_answer(HTTP_STATUS_ERROR)
                  : SchedulerError{Kind::InvalidAnswer, "its answer is too large"};
    connection_.reset();
  } else if (ippGetStatusCode(answer.get()) > IPP_STATUS_OK_EVENTS_COMPLETE) {
    const auto status = ippGetStatusCode(answer.get());
    const char* message =
        ippGetString(ippFindAttribute(answer.get(), "status-message", IPP_TAG_TEXT), 0, nullptr);
    error_ = error_of(kind_of(status, operation), message != nullptr ? message : ippErrorString(status));
    answer.reset();
  }
  return answer;
}

SchedulerError QueueClient::why_no_answer(http_status_t status) const {
  switch (status) {
    case HTTP_STATUS_UNAUTHORIZED:
    case HTTP_STATUS_CUPS_AUTHORIZATION_CANCELED:
      return error_of(Kind::Unauthorized, httpStatus(HTTP_STATUS_UNAUTHORIZED));
    case HTTP_STATUS_FORBIDDEN:
      return error_of(Kind::Forbidden, httpStatus(status));
    case HTTP_STATUS_UPGRADE_REQUIRED:
    case HTTP_STATUS_CUPS_PKI_ERROR:
      return error_of(Kind::NeedsEncryption, httpStatus(status));
    case HTTP_STATUS_ERROR:
      break;
    default:
      // A page of an HTTP server, or a redirect.
      return {Kind::InvalidAnswer, NOT_IPP};
  }
  int error = httpError(connection_.get());
  // The library's own words for any connection that fails.
  if (error == EHOSTDOWN || error == 0) {
    error = connection_error(server_);
  }
  return error != 0 ? error_of(Kind::Unreachable, std::strerror(error))
                    : SchedulerError{Kind::InvalidAnswer, NOT_IPP};
}

SchedulerAnswer QueueClient::ask_for(const LookRequest& request) {
  // The jobs first and the queues last: what a job has reported by its end is then in its queue's reading.
  std::map<int, Job> jobs;
  const auto add = [&](const char* which, int first_job) {
    const auto get = new_request(IPP_OP_GET_JOBS, "ipp://localhost/");
    ippAddString(get.get(), IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "which-jobs", nullptr, which);
    if (first_job > 0) {
      ippAddInteger(get.get(), IPP_TAG_OPERATION, IPP_TAG_INTEGER, "first-job-id", first_job);
    }
    add_wanted(get.get(), job_attributes());
    const auto answer = exchange(get, "/");
    add_jobs(answer.get(), jobs);
    return answer != nullptr;
  };
  if (!add("not-completed", 0) || (request.first_job > 0 && !add("all", request.first_job))) {
    return error_;
  }

  Look look;
  for (auto& [number, job] : jobs) {
    look.jobs.push_back(std::move(job));
  }
  if (request.queues && !read(request.names, look.queues)) {
    return error_;
  }
  if (look.queues.size() > MAX_QUEUES || look.jobs.size() > MAX_JOBS) {
    return SchedulerError{Kind::InvalidAnswer, "it has too many queues or jobs"};
  }
  has_looked_ = true;
  return look;
}

/// Reads the queues of these names that exist, or all queues if `names` is empty. False (and error_) on
/// failure.
bool QueueClient::read(const std::vector<std::string>& names, std::vector<Reading>& readings) {
  const auto add = [&](ipp_op_t operation, const std::string& uri) {
    const auto get = new_request(operation, uri);
    add_wanted(get.get(), reading_attributes());
    const auto answer = exchange(get, "/");
    std::ranges::move(read_queues(answer.get()), std::back_inserter(readings));
    // CUPS also says "not found" if it has no queue at all.
    return answer != nullptr || error_.kind == Kind::NotFound;
  };
  const bool have_all = std::ranges::all_of(
      names, [&](const auto& name) { return add(IPP_OP_GET_PRINTER_ATTRIBUTES, queue_uri(name)); });
  // A policy may allow only the other operation.
  const bool refused = error_.kind == Kind::Forbidden || error_.kind == Kind::Unauthorized;
  if (names.empty() || (!have_all && refused)) {
    readings.clear();
    return add(IPP_OP_CUPS_GET_PRINTERS, "");
  }
  return have_all;
}

SchedulerAnswer QueueClient::ask_for(const SendRequest& request) {
  std::string commands = "#CUPS-COMMAND\n";
  for (int i = 0; i < request.report_levels; ++i) {
    commands += "ReportLevels\n";
  }
  const auto print = new_request(IPP_OP_PRINT_JOB, queue_uri(request.queue));
  ippAddString(print.get(), IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr, JOB_NAME);
  ippAddString(print.get(), IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr,
               CUPS_FORMAT_COMMAND);
  ippAddInteger(print.get(), IPP_TAG_JOB, IPP_TAG_INTEGER, "job-cancel-after", request.lifetime_seconds);
  const auto answer = exchange(print, queue_resource(request.queue), commands);
  if (!answer) {
    return error_;
  }
  const auto job = number_of(ippFindAttribute(answer.get(), "job-id", IPP_TAG_INTEGER));
  if (!job) {
    return SchedulerError{Kind::InvalidAnswer, "it took the job but gave it no number"};
  }
  return Sent{*job};
}

SchedulerAnswer QueueClient::ask_for(const PurgeRequest& request) {
  // Another connection may lead to a scheduler that has restarted since the job was seen.
  if (!connect()) {
    return error_;
  }
  if (!has_looked_) {
    const auto is_own = is_own_job(request);
    if (!is_own) {
      return error_;
    }
    if (!*is_own) {
      return Purged{};
    }
  }
  // The first request only ends a job that is being processed; a job that has ended is forgotten.
  if (!cancel(request, true) || (!request.has_ended && !cancel(request, true))) {
    const SchedulerError refusal = error_;
    cancel(request, false);
    return refusal;
  }
  return Purged{};
}

/// Returns whether the number is that of a command job in the queue. A scheduler that was killed gives the
/// numbers of the jobs that it has lost to other jobs. Returns nothing (and error_) on failure.
std::optional<bool> QueueClient::is_own_job(const PurgeRequest& request) {
  const auto get = new_request(IPP_OP_GET_JOB_ATTRIBUTES, queue_uri(request.queue));
  ippAddInteger(get.get(), IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", request.job);
  add_wanted(get.get(), job_attributes());
  const auto answer = exchange(get, "/");
  if (!answer && error_.kind != Kind::NotFound) {
    return std::nullopt;
  }
  std::map<int, Job> jobs;
  add_jobs(answer.get(), jobs);
  const auto job = jobs.find(request.job);
  return job != jobs.end() && job->second.is_command && job->second.queue == request.queue;
}

/// Cancels the job. Also returns true if the job no longer exists.
bool QueueClient::cancel(const PurgeRequest& request, bool purge) {
  const auto cancel = new_request(IPP_OP_CANCEL_JOB, queue_uri(request.queue));
  ippAddInteger(cancel.get(), IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", request.job);
  if (purge) {
    ippAddBoolean(cancel.get(), IPP_TAG_OPERATION, "purge-job", 1);
  }
  return exchange(cancel, "/jobs/") || error_.kind == Kind::NotFound;
}
