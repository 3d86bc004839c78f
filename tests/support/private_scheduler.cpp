#include "tests/support/private_scheduler.h"

#include <array>
#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "tests/support/free_port.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

void add_printer_uri(ipp_t* request, const std::string& queue) {
  const std::string uri = "ipp://localhost/printers/" + queue;
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri.c_str());
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
}

void add_job_uri(ipp_t* request, int job) {
  const std::string uri = "ipp://localhost/jobs/" + std::to_string(job);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "job-uri", nullptr, uri.c_str());
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
}

}  // namespace

PrivateScheduler::PrivateScheduler(const std::string& filter) : filter_(filter), port_(free_port()) {
  start();
}

PrivateScheduler::~PrivateScheduler() {
  process_->signal(SIGTERM);
  process_->wait(seconds(10));
  for (const pid_t orphan : orphans_) {
    // It may have ended, and its number be another's.
    std::ifstream file("/proc/" + std::to_string(orphan) + "/environ");
    const std::string environment{std::istreambuf_iterator<char>(file), {}};
    if (environment.find(path().string()) != std::string::npos) {
      kill(orphan, SIGKILL);
    }
  }
}

void PrivateScheduler::start() {
  process_ = std::make_unique<ChildProcess>(ChildProcess::Options{
      {"/bin/sh", PRIVATE_SCHEDULER_SCRIPT, path().string(), filter_, std::to_string(port_)}, {}, {}});
  const auto deadline = steady_clock::now() + seconds(30);
  for (;;) {
    if (http_t* connection = httpConnect2(server().c_str(), 0, nullptr, AF_UNSPEC,
                                          HTTP_ENCRYPTION_IF_REQUESTED, 1, 1000, nullptr)) {
      httpClose(connection);
      return;
    }
    if (process_->wait(milliseconds(20)) || steady_clock::now() > deadline) {
      throw std::runtime_error("the private scheduler did not start");
    }
  }
}

void PrivateScheduler::restart(int signal) {
  if (signal == SIGKILL) {
    // It cannot end its filters and backends: one that waits for its printer would outlive the test.
    const std::string self = std::to_string(pid());
    std::ifstream children("/proc/" + self + "/task/" + self + "/children");
    for (pid_t child = 0; children >> child;) {
      orphans_.push_back(child);
    }
  }
  process_->signal(signal);
  if (!process_->wait(seconds(30))) {
    throw std::runtime_error("the private scheduler did not end");
  }
  std::filesystem::remove(server());
  start();
}

ipp_t* PrivateScheduler::answer(ipp_t* request, const char* resource, const std::string& file) const {
  http_t* connection =
      httpConnect2(server().c_str(), 0, nullptr, AF_UNSPEC, HTTP_ENCRYPTION_IF_REQUESTED, 1, 30000, nullptr);
  if (connection == nullptr) {
    ippDelete(request);
    throw std::runtime_error("the private scheduler does not answer");
  }
  ipp_t* response = cupsDoFileRequest(connection, request, resource, file.empty() ? nullptr : file.c_str());
  httpClose(connection);
  if (cupsLastError() > IPP_STATUS_OK_EVENTS_COMPLETE) {
    ippDelete(response);
    throw std::runtime_error(std::string("the private scheduler refused: ") + cupsLastErrorString());
  }
  return response;
}

void PrivateScheduler::add_queue(const std::string& name, const std::string& device_uri,
                                 const std::string& ppd) const {
  ipp_t* request = ippNewRequest(IPP_OP_CUPS_ADD_MODIFY_PRINTER);
  add_printer_uri(request, name);
  ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_URI, "device-uri", nullptr, device_uri.c_str());
  ippAddBoolean(request, IPP_TAG_PRINTER, "printer-is-accepting-jobs", 1);
  ippAddInteger(request, IPP_TAG_PRINTER, IPP_TAG_ENUM, "printer-state", IPP_PSTATE_IDLE);
  ippDelete(answer(request, "/admin/", ppd));
}

void PrivateScheduler::change(ipp_op_t operation, const std::string& queue) const {
  ipp_t* request = ippNewRequest(operation);
  add_printer_uri(request, queue);
  ippDelete(answer(request, "/admin/"));
}

void PrivateScheduler::pause(const std::string& queue) const {
  change(IPP_OP_PAUSE_PRINTER, queue);
}
void PrivateScheduler::resume(const std::string& queue) const {
  change(IPP_OP_RESUME_PRINTER, queue);
}
void PrivateScheduler::reject(const std::string& queue) const {
  change(IPP_OP_CUPS_REJECT_JOBS, queue);
}
void PrivateScheduler::accept(const std::string& queue) const {
  change(IPP_OP_CUPS_ACCEPT_JOBS, queue);
}
void PrivateScheduler::set_default(const std::string& queue) const {
  change(IPP_OP_CUPS_SET_DEFAULT, queue);
}

int PrivateScheduler::send(const std::string& queue, const std::string& bytes, const char* format) const {
  const TemporaryFolder folder;
  const auto file = folder.path() / "document";
  std::ofstream(file, std::ios::binary) << bytes;

  ipp_t* request = ippNewRequest(IPP_OP_PRINT_JOB);
  add_printer_uri(request, queue);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr, format);
  ipp_t* response = answer(request, ("/printers/" + queue).c_str(), file.string());
  const int job = ippGetInteger(ippFindAttribute(response, "job-id", IPP_TAG_INTEGER), 0);
  ippDelete(response);
  return job;
}

int PrivateScheduler::send_commands(const std::string& queue, const std::string& commands) const {
  return send(queue, "#CUPS-COMMAND\n" + commands, CUPS_FORMAT_COMMAND);
}

int PrivateScheduler::send_raw(const std::string& queue, const std::string& bytes) const {
  return send(queue, bytes, CUPS_FORMAT_RAW);
}

ipp_jstate_t PrivateScheduler::job_state(int job) const {
  ipp_t* request = ippNewRequest(IPP_OP_GET_JOB_ATTRIBUTES);
  add_job_uri(request, job);
  ipp_t* response = answer(request, "/");
  const int state = ippGetInteger(ippFindAttribute(response, "job-state", IPP_TAG_ENUM), 0);
  ippDelete(response);
  return static_cast<ipp_jstate_t>(state);
}

ipp_jstate_t PrivateScheduler::wait_for_job(int job, seconds limit) const {
  const auto deadline = steady_clock::now() + limit;
  auto state = job_state(job);
  while (state < IPP_JSTATE_CANCELED && steady_clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(20));
    state = job_state(job);
  }
  return state;
}

void PrivateScheduler::cancel_job(int job) const {
  ipp_t* request = ippNewRequest(IPP_OP_CANCEL_JOB);
  add_job_uri(request, job);
  ippDelete(answer(request, "/jobs/"));
}

QueueView PrivateScheduler::report(const std::string& queue, const std::string& commands) const {
  const int job = send_commands(queue, commands);
  if (const auto state = wait_for_job(job); state != IPP_JSTATE_COMPLETED) {
    throw std::runtime_error(std::string("the command job ended as ") + ippEnumString("job-state", state));
  }
  return view(queue);
}

QueueView PrivateScheduler::view(const std::string& queue) const {
  ipp_t* request = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
  add_printer_uri(request, queue);
  ipp_t* response = answer(request, "/");
  QueueView view;
  ipp_attribute_t* reasons = ippFindAttribute(response, "printer-state-reasons", IPP_TAG_KEYWORD);
  for (int i = 0; i < ippGetCount(reasons); ++i) {
    view.reasons.insert(ippGetString(reasons, i, nullptr));
  }
  view.reasons.erase("none");
  for (const char* name :
       {"marker-colors", "marker-levels", "marker-message", "marker-names", "marker-types"}) {
    if (ipp_attribute_t* attribute = ippFindAttribute(response, name, IPP_TAG_ZERO)) {
      std::array<char, 1024> value{};
      ippAttributeString(attribute, value.data(), value.size());
      view.marker[name] = value.data();
    }
  }
  ippDelete(response);
  return view;
}

std::vector<std::string> PrivateScheduler::job_log(int job) const {
  const std::string mark = "[Job " + std::to_string(job) + "] ";
  std::vector<std::string> lines;
  std::ifstream log(path() / "error_log");
  for (std::string line; std::getline(log, line);) {
    if (const auto start = line.find(mark); start != std::string::npos) {
      lines.push_back(line.substr(start + mark.size()));
    }
  }
  return lines;
}

std::vector<pid_t> PrivateScheduler::running_filters() const {
  std::vector<pid_t> filters;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    std::error_code gone;
    const auto program = std::filesystem::read_symlink(entry.path() / "exe", gone);
    if (!gone && program == path() / "bin/filter/commandtobrenvellis") {
      filters.push_back(std::stoi(name));
    }
  }
  return filters;
}
