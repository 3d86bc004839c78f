// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <umockdev.h>

#include <asio.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// UsbPrinterSettings is what a test may choose about the simulated USB printer.
struct UsbPrinterSettings {
  int protocol = 2;                ///< 1: the computer can only write; 2: it can also read
  bool answers_idle_read = false;  ///< an idle read gets an empty packet instead of no answer
};

/// The bytes as two hexadecimal digits each.
std::string hexadecimal(const std::vector<unsigned char>& bytes);

/// GObjectPointer holds a reference to a GObject.
template <typename Object>
struct GObjectRelease {
  void operator()(Object* object) const { g_object_unref(object); }
};
template <typename Object>
using GObjectPointer = std::unique_ptr<Object, GObjectRelease<Object>>;

/// UsbDevice is the USB side of a printer: a device node that answers the requests of the kernel's usbdevfs.
/// Data from the computer is sent to a TCP port; replies from there stay in the device until they are read.
///
/// All functions but the request handler run on the thread of the io_context.
class UsbDevice {
 public:
  /// @param io    runs everything.
  /// @param port  where the printer listens on 127.0.0.1.
  UsbDevice(asio::io_context& io, std::uint16_t port, UsbPrinterSettings settings);
  ~UsbDevice();
  UsbDevice(const UsbDevice&) = delete;
  UsbDevice& operator=(const UsbDevice&) = delete;

  /// Plugs the printer in. A protocol that was changed since takes effect now.
  void plug();
  /// Pulls the cable: pending transfers fail, the replies that wait in the device are lost.
  void unplug();
  [[nodiscard]] bool plugged() const { return !node_.empty(); }

  /// Takes no output while it is busy.
  void set_busy(bool busy);
  void set_protocol(int protocol) { settings_.protocol = protocol; }
  void set_answers_idle_read(bool answers);

  /// One line of NAME=VALUE pairs.
  [[nodiscard]] std::string show() const;
  /// All bytes that the computer wrote since the start or the last call.
  [[nodiscard]] std::vector<unsigned char> take_output();
  /// The folder for UMOCKDEV_DIR.
  [[nodiscard]] std::string folder() const;

 private:
  struct Transfer {
    GObjectPointer<UMockdevIoctlData> block;   ///< the client's usbdevfs_urb
    GObjectPointer<UMockdevIoctlData> buffer;  ///< the data in it
    int status = 0;
    int length = 0;
    std::vector<unsigned char> answer;  ///< what the computer reads
  };
  /// Host is a program that has the device node open.
  struct Host {
    bool on_this_plug = true;  ///< false: it opened a node that was unplugged since
    bool claimed = false;
    std::list<Transfer> pending;     ///< oldest first
    std::deque<Transfer> completed;  ///< to be reaped
    bool reaping = false;            ///< the client waits for the answer to a reap request
    bool idle = false;               ///< an idle read is to be answered at the end of the wait
    std::unique_ptr<asio::steady_timer> wait;
    std::chrono::steady_clock::time_point last_request;
  };
  using Client = UMockdevIoctlClient;

  static gboolean on_request(UMockdevIoctlBase* base, Client* client, gpointer self);
  static void on_connected(Client* client, GParamSpec* property, gpointer self);

  void handle(Client* client);
  void claim(Client* client, Host& host);
  void submit(Client* client, Host& host);
  void discard(Client* client, Host& host);
  void reap(Client* client, Host& host);
  void finish_reap(Client* client, Host& host);
  void control(Transfer& transfer) const;
  void complete(Client* client, Host& host, std::list<Transfer>::iterator transfer);
  void advance();
  void forget(Client* client);
  Client* other_owner(Client* client);

  void forward(const unsigned char* bytes, std::size_t count);
  void write_to_printer();
  void read_from_printer();
  void disconnect();

  asio::io_context& io_;
  asio::ip::tcp::endpoint printer_;
  UsbPrinterSettings settings_;
  GObjectPointer<UMockdevTestbed> testbed_;
  GObjectPointer<UMockdevIoctlBase> handler_;
  std::string node_;  ///< the device node; empty while unplugged
  int number_ = 1;    ///< the device number, a new one for each plug
  int plugged_protocol_ = 2;
  bool busy_ = false;
  std::map<Client*, Host> hosts_;
  std::deque<unsigned char> replies_;  ///< what the computer has not read yet
  std::vector<unsigned char> output_;
  std::size_t received_ = 0;

  std::unique_ptr<asio::ip::tcp::socket> socket_;
  std::vector<unsigned char> to_printer_;
  bool writing_ = false;
};
