// SPDX-License-Identifier: Apache-2.0
#include "tests/support/private_scheduler.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

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

/// Returns when the process was started, in the system's unit; empty if it does not exist. This
/// distinguishes it from a later process with the same id.
std::string start_time(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  // A process that ends meanwhile makes the read fail; getline() does not throw then.
  std::string text;
  std::getline(file, text, '\0');
  const auto name_end = text.rfind(')');
  if (name_end == std::string::npos || text.substr(name_end + 2, 1) == "Z") {
    return "";
  }
  std::istringstream fields(text.substr(name_end + 1));
  std::string field;
  for (int number = 3; number <= 22; ++number) {
    fields >> field;
  }
  return field;
}

}  // namespace

PrivateScheduler::PrivateScheduler() : PrivateScheduler(Options{}) {}

PrivateScheduler::PrivateScheduler(Options options)
    : options_(std::move(options)), port_(options_.port ? free_port() : 0) {
  if (geteuid() == 0) {
    // The scheduler's user must be able to reach its folder in it.
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0711));
  }
  start();
}

PrivateScheduler::~PrivateScheduler() {
  end(SIGTERM);
  // A scheduler that has exited normally has stopped its children.
  const auto deadline = steady_clock::now() + seconds(killed_ ? 0 : 5);
  const auto runs = [](const auto& child) { return start_time(child.first) == child.second; };
  while (std::ranges::any_of(children_, runs) && steady_clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(10));
  }
  for (const auto& child : std::map(children_)) {
    if (runs(child)) {
      note_children(child.first);
    }
  }
  for (const auto& child : children_) {
    if (runs(child)) {
      ::kill(child.first, SIGKILL);
    }
  }
}

void PrivateScheduler::start() {
  ChildProcess::Options process{{"/bin/sh", PRIVATE_SCHEDULER_SCRIPT}, {}, {}};
  auto& arguments = process.arguments;
  if (options_.configuration == Configuration::DEFAULT) {
    arguments.emplace_back("--default");
  }
  if (options_.port) {
    arguments.insert(arguments.end(), {"--port", std::to_string(port_)});
  }
  if (options_.file_device) {
    arguments.emplace_back("--file-device");
  }
  if (!options_.log) {
    arguments.insert(arguments.end(), {"--log-level", "warn"});
  }
  for (const auto& [name, program] : options_.backends) {
    arguments.insert(arguments.end(), {"--backend", name + "=" + program});
  }
  arguments.insert(arguments.end(), {path().string(), options_.filter});
  process_ = std::make_unique<ChildProcess>(process);
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

/// Notes all processes that it started, and that these started.
void PrivateScheduler::note_children(pid_t parent) {
  const std::string number = std::to_string(parent);
  std::ifstream children("/proc/" + number + "/task/" + number + "/children");
  for (pid_t child = 0; children >> child;) {
    children_[child] = start_time(child);
    note_children(child);
  }
}

void PrivateScheduler::end(int signal) {
  if (signal == SIGKILL) {
    // It starts no more while its children are noted.
    process_->signal(SIGSTOP);
    killed_ = true;
  }
  note_children(pid());
  process_->signal(signal);
  process_->wait(seconds(30));
}

void PrivateScheduler::kill() {
  end(SIGKILL);
}

void PrivateScheduler::restart(int signal) {
  end(signal);
  if (!process_->wait(seconds(0))) {
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

void PrivateScheduler::pause(const std::string& queue, const std::string& reason) const {
  ipp_t* request = ippNewRequest(IPP_OP_PAUSE_PRINTER);
  add_printer_uri(request, queue);
  if (!reason.empty()) {
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_TEXT, "printer-state-message", nullptr, reason.c_str());
  }
  ippDelete(answer(request, "/admin/"));
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

void PrivateScheduler::end_job(int job, bool purge) const {
  ipp_t* request = ippNewRequest(IPP_OP_CANCEL_JOB);
  add_job_uri(request, job);
  if (purge) {
    ippAddBoolean(request, IPP_TAG_OPERATION, "purge-job", 1);
  }
  ippDelete(answer(request, "/jobs/"));
}

void PrivateScheduler::cancel_job(int job) const {
  end_job(job, false);
}
void PrivateScheduler::purge_job(int job) const {
  end_job(job, true);
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
