#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Every wait of the tests ends after this time, and the test fails.
constexpr int PATIENCE_MS = 30000;

const std::string STATUS_REQUEST("\x1bGD0\0\0\x01\x16", 8);
const std::string LEVELS_REQUEST("\x1bGD0\0\0\x03\x1e\x16\x2a", 10);

/// The replies of a printer that nothing but the code was set on.
std::string status_reply(std::uint16_t code = 0);
std::string levels_reply(std::uint16_t code = 0);

/// TemporaryFolder is a new folder that goes with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] std::string file(const std::string& name) const { return path_ / name; }
  [[nodiscard]] bool empty() const { return std::filesystem::is_empty(path_); }

 private:
  std::filesystem::path path_;
};

/// Outcome is what a program left that ran to its end.
struct Outcome {
  int status;  ///< exit status, or 128 and the number of the signal that ended it
  std::string output;
  std::string errors;
};

Outcome run_simulator(const std::vector<std::string>& arguments);

/// Connection is a client's end of a stream socket; what fails on it fails the test.
class Connection {
 public:
  static Connection to_port(std::uint16_t port);
  static Connection to_path(const std::string& path);
  Connection(Connection&& other) noexcept;
  Connection& operator=(Connection&& other) noexcept;
  ~Connection();

  void send(std::string_view bytes) const;
  void end_sending() const;
  /// @return exactly so many bytes; fewer at the end of the stream.
  [[nodiscard]] std::string receive(std::size_t size) const;
  /// @return what the next piece brings; empty at the end of the stream.
  [[nodiscard]] std::string receive_piece() const;
  [[nodiscard]] std::string receive_to_end() const;
  /// @return what is there now, without waiting.
  [[nodiscard]] std::string receive_now() const;
  [[nodiscard]] std::string receive_line() const;
  /// Sends until the peer takes no more for a while or `most` bytes are gone.
  [[nodiscard]] std::size_t send_until_stuck(std::string_view bytes, std::size_t most) const;
  /// Closes with a reset in place of an orderly end.
  void reset();

 private:
  explicit Connection(int descriptor) : descriptor_(descriptor) {}
  int descriptor_;
};

/// @return 0 if a connection could be made, else errno.
int try_to_connect(std::uint16_t port);

/// PortHolder holds a free port of 127.0.0.1 that only a program that is told its number can listen on.
class PortHolder {
 public:
  /// @param port 0 for a free one.
  explicit PortHolder(std::uint16_t port = 0);
  ~PortHolder();
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;
  [[nodiscard]] std::uint16_t port() const { return port_; }
  void listen() const;

 private:
  int descriptor_;
  std::uint16_t port_ = 0;
};

/// SimulatorProcess is a running simulator with a control socket; it ends with its object.
class SimulatorProcess {
 public:
  /// @param arguments without --control.
  /// @param descriptors how many it may open at once; 0 for the usual number.
  explicit SimulatorProcess(std::vector<std::string> arguments = {}, unsigned descriptors = 0,
                            std::shared_ptr<TemporaryFolder> folder = std::make_shared<TemporaryFolder>());
  ~SimulatorProcess();
  SimulatorProcess(const SimulatorProcess&) = delete;
  SimulatorProcess& operator=(const SimulatorProcess&) = delete;

  [[nodiscard]] const std::string& uri() const { return uri_; }
  [[nodiscard]] std::uint16_t port() const;
  [[nodiscard]] std::string control() const { return folder_->file("control"); }
  /// The folder of the control socket; the simulator writes nowhere else.
  [[nodiscard]] const std::shared_ptr<TemporaryFolder>& folder() const { return folder_; }
  [[nodiscard]] Connection connect() const { return Connection::to_port(port()); }

  /// @return the reply to one control line.
  [[nodiscard]] std::string tell(std::string_view line) const;
  /// Expects "ok".
  void set(std::string_view line) const;
  /// Waits until "show" has the text in it.
  void await_shown(std::string_view text) const;
  [[nodiscard]] std::size_t open_descriptors() const;
  /// Ends it by a signal; what its output and errors held behind the URI is in the outcome.
  Outcome end(int signal);

 private:
  std::shared_ptr<TemporaryFolder> folder_;
  pid_t process_ = 0;
  int output_ = -1;
  int errors_ = -1;
  std::string uri_;
};
