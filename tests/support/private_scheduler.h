// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/cups.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

/// QueueView is what a client of the scheduler sees of a queue.
struct QueueView {
  std::set<std::string> reasons;  ///< printer-state-reasons, without "none"
  std::map<std::string, std::string>
      marker;  ///< marker-colors, -levels, -message, -names, -types; values as text
};

/// PrivateScheduler is a real CUPS scheduler in a folder of its own. It ends, with its filters and backends,
/// and its folder is removed, with the object. It never runs as root: a test that runs as root has one that
/// runs as user lp. Its functions throw if the scheduler refuses.
class PrivateScheduler {
 public:
  enum class Configuration : std::uint8_t {
    RELAXED,  ///< every client may do everything, and no limit on jobs gets in the way
    DEFAULT,  ///< the distribution's own; only paths, ports and logging differ
  };
  struct Options {
    Configuration configuration = Configuration::RELAXED;
    bool port = false;         ///< whether it also listens on a port; implies the default configuration
    bool file_device = false;  ///< whether queues may print to files
    bool log = true;           ///< false: it logs as little as the distribution's own
    std::string filter = FILTER_PROGRAM;  ///< the command filter to install
    std::map<std::string, std::string> backends =
        {};  ///< more backends to install: URI scheme -> program to copy
  };

  PrivateScheduler();
  explicit PrivateScheduler(Options options);
  ~PrivateScheduler();
  PrivateScheduler(const PrivateScheduler&) = delete;
  PrivateScheduler& operator=(const PrivateScheduler&) = delete;

  /// The path of its socket: the value for CUPS_SERVER.
  [[nodiscard]] std::string server() const { return (path() / "sock").string(); }
  /// HOST:PORT for clients of the network, if it has a port.
  [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
  /// Its folder, which belongs to the scheduler's user.
  [[nodiscard]] std::filesystem::path path() const { return folder_.path() / "s"; }
  [[nodiscard]] pid_t pid() const { return process_->pid(); }

  /// Adds an accepting, enabled queue.
  /// @param ppd  the driver's unless told otherwise; empty: none, as a queue of another driver.
  void add_queue(const std::string& name, const std::string& device_uri,
                 const std::string& ppd = PPD_FILE) const;
  void pause(const std::string& queue, const std::string& reason = {}) const;
  void resume(const std::string& queue) const;
  void reject(const std::string& queue) const;
  void accept(const std::string& queue) const;
  void set_default(const std::string& queue) const;

  /// Sends a document of this MIME type as a job and returns the job's number.
  [[nodiscard]] int send(const std::string& queue, const std::string& bytes, const char* format) const;
  /// The same for a command file.
  [[nodiscard]] int send_commands(const std::string& queue, const std::string& commands) const;
  /// The same for bytes that reach the printer unchanged.
  [[nodiscard]] int send_raw(const std::string& queue, const std::string& bytes) const;
  /// Waits for the job's end; the state that it had then or at the limit.
  [[nodiscard]] ipp_jstate_t wait_for_job(int job,
                                          std::chrono::seconds limit = std::chrono::seconds(120)) const;
  [[nodiscard]] ipp_jstate_t job_state(int job) const;
  void cancel_job(int job) const;
  /// Cancels the job with "purge-job": its backend is killed at once.
  void purge_job(int job) const;
  /// Sends the commands, waits for the job to complete, returns what a client then sees.
  [[nodiscard]] QueueView report(const std::string& queue,
                                 const std::string& commands = "ReportLevels\n") const;

  [[nodiscard]] QueueView view(const std::string& queue) const;
  /// The lines that the filter and the backend of a job logged, without the scheduler's date and level.
  [[nodiscard]] std::vector<std::string> job_log(int job) const;
  /// The process ids of the filters that run under this scheduler.
  [[nodiscard]] std::vector<pid_t> running_filters() const;

  /// Kills the scheduler, which cannot end its filters and backends then. They end with this object.
  void kill();
  /// Ends the scheduler by a signal (SIGTERM, SIGKILL) and starts it again on the same folder.
  void restart(int signal);

 private:
  void start();
  void end(int signal);
  void note_children(pid_t parent);
  void end_job(int job, bool purge) const;
  [[nodiscard]] ipp_t* answer(ipp_t* request, const char* resource, const std::string& file = {}) const;
  void change(ipp_op_t operation, const std::string& queue) const;
  TemporaryFolder folder_;
  Options options_;
  int port_ = 0;
  std::unique_ptr<ChildProcess> process_;
  std::map<pid_t, std::string> children_;  ///< what an ended scheduler had started, with its start time
  bool killed_ = false;
};
