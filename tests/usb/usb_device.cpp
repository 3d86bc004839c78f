// SPDX-License-Identifier: Apache-2.0
#include "tests/usb/usb_device.h"

#include <linux/usbdevice_fs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr unsigned char OUT_ENDPOINT = 0x01;
constexpr unsigned char IN_ENDPOINT = 0x82;
constexpr unsigned char DIRECTION_IN = 0x80;

// 1209:0001 is set aside for tests; no driver and no list of quirks knows it.
constexpr std::array<unsigned char, 2> VENDOR = {0x09, 0x12};
constexpr std::array<unsigned char, 2> PRODUCT = {0x01, 0x00};

constexpr std::string_view DEVICE_ID =
    "MFG:Brenvellis;MDL:Photo Printer;CLS:PRINTER;CMD:BRENVELLIS;DES:Brenvellis Photo Printer;";
constexpr std::array<std::string_view, 3> STRINGS = {"Brenvellis", "Photo Printer", "SIMULATED"};

constexpr char SYSFS_PATH[] = "/sys/devices/1-1";

/// A mock device node is always ready for poll(), so a program without completed transfers would ask again
/// immediately.
constexpr milliseconds NOTHING_TO_REAP(1);

/// A program that waits for a transfer and does not ask for this long has been killed.
constexpr milliseconds SILENCE_OF_THE_KILLED(2000);

constexpr std::size_t SETUP_SIZE = 8;

using Bytes = std::vector<unsigned char>;

Bytes device_descriptor() {
  return {18,        1,          0x00,       0x02, 0,    0, 0, 64, VENDOR[0],
          VENDOR[1], PRODUCT[0], PRODUCT[1], 0x00, 0x01, 1, 2, 3,  1};
}

Bytes configuration_descriptor(int protocol) {
  const auto number = static_cast<unsigned char>(protocol);
  Bytes bytes = {9, 2,      0,
                 0, 1,      1,
                 0, 0xc0,   0,  // configuration 1, self-powered
                 9, 4,      0,
                 0, 0,      7,
                 1, number, 0,  // printer class
                 7, 5,      OUT_ENDPOINT,
                 2, 0x00,   0x02,
                 0};
  if (protocol == 2) {
    bytes.insert(bytes.end(), {7, 5, IN_ENDPOINT, 2, 0x00, 0x02, 0});
  }
  bytes[13] = protocol == 2 ? 2 : 1;
  bytes[2] = static_cast<unsigned char>(bytes.size());
  return bytes;
}

Bytes string_descriptor(unsigned index) {
  if (index == 0) {
    return {4, 3, 0x09, 0x04};  // English
  }
  Bytes bytes = {0, 3};
  if (index <= STRINGS.size()) {
    for (const char character : STRINGS[index - 1]) {
      bytes.push_back(static_cast<unsigned char>(character));
      bytes.push_back(0);
    }
  }
  bytes[0] = static_cast<unsigned char>(bytes.size());
  return bytes;
}

Bytes device_id() {
  const std::size_t size = DEVICE_ID.size() + 2;
  Bytes bytes(size);
  bytes[0] = static_cast<unsigned char>(size >> 8);
  bytes[1] = static_cast<unsigned char>(size & 0xff);
  std::copy(DEVICE_ID.begin(), DEVICE_ID.end(), bytes.begin() + 2);
  return bytes;
}

/// The memory behind the argument of a request, as a structure of the kernel's interface.
template <typename Structure>
Structure* argument(UMockdevIoctlClient* client) {
  GObjectPointer<UMockdevIoctlData> data(
      umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(Structure), nullptr));
  return data ? reinterpret_cast<Structure*>(data->data) : nullptr;
}

usbdevfs_urb& block_of(UMockdevIoctlData& data) {
  return *reinterpret_cast<usbdevfs_urb*>(data.data);
}

}  // namespace

std::string hexadecimal(const Bytes& bytes) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 0xf];
  }
  return text;
}

UsbDevice::UsbDevice(asio::io_context& io, std::uint16_t port, UsbPrinterSettings settings)
    : io_(io),
      printer_(asio::ip::address_v4::loopback(), port),
      settings_(settings),
      testbed_(umockdev_testbed_new()),
      handler_(umockdev_ioctl_base_new()) {
  g_signal_connect(handler_.get(), "handle-ioctl", G_CALLBACK(on_request), this);
}

UsbDevice::~UsbDevice() {
  unplug();
}

std::string UsbDevice::folder() const {
  gchar* path = umockdev_testbed_get_root_dir(testbed_.get());
  std::string result = path;
  g_free(path);
  return result;
}

void UsbDevice::plug() {
  if (plugged()) {
    return;
  }
  plugged_protocol_ = settings_.protocol;
  number_ = number_ % 127 + 1;
  std::array<char, 32> name{};
  snprintf(name.data(), name.size(), "bus/usb/001/%03d", number_);
  node_ = std::string("/dev/") + name.data();

  Bytes descriptors = device_descriptor();
  const Bytes configuration = configuration_descriptor(plugged_protocol_);
  descriptors.insert(descriptors.end(), configuration.begin(), configuration.end());
  const std::string number = std::to_string(number_);
  const std::string description =
      std::string("P: ") + (SYSFS_PATH + 4) + "\nN: " + name.data() +
      "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=" + node_ +
      "\nE: BUSNUM=001\nE: DEVNUM=" + number + "\nA: busnum=1\\n\nA: devnum=" + number +
      "\\n\nA: speed=480\\n\nA: bConfigurationValue=1\\n\nA: dev=189:" + std::to_string(number_ - 1) +
      "\\n\nH: descriptors=" + hexadecimal(descriptors) + "\n\n";
  GError* error = nullptr;
  if (umockdev_testbed_attach_ioctl(testbed_.get(), node_.c_str(), handler_.get(), &error) == 0 ||
      umockdev_testbed_add_from_string(testbed_.get(), description.c_str(), &error) == 0) {
    throw std::runtime_error(std::string("cannot plug the device in: ") + error->message);
  }
}

void UsbDevice::unplug() {
  if (!plugged()) {
    return;
  }
  umockdev_testbed_remove_device(testbed_.get(), SYSFS_PATH);
  umockdev_testbed_detach_ioctl(testbed_.get(), node_.c_str(), nullptr);
  node_.clear();
  replies_.clear();
  disconnect();
  for (auto& [client, host] : hosts_) {
    host.on_this_plug = false;
    host.claimed = false;
    while (!host.pending.empty()) {
      host.pending.front().status = -ENODEV;
      complete(client, host, host.pending.begin());
    }
  }
}

void UsbDevice::set_busy(bool busy) {
  busy_ = busy;
  advance();
}

void UsbDevice::set_answers_idle_read(bool answers) {
  settings_.answers_idle_read = answers;
}

std::string UsbDevice::show() const {
  const auto claims =
      std::count_if(hosts_.begin(), hosts_.end(), [](const auto& entry) { return entry.second.claimed; });
  return "plugged=" + std::to_string(plugged()) + " protocol=" + std::to_string(settings_.protocol) +
         " idle=" + (settings_.answers_idle_read ? "empty" : "silent") + " busy=" + std::to_string(busy_) +
         " claimed=" + std::to_string(claims) + " received=" + std::to_string(received_) +
         " waiting=" + std::to_string(replies_.size());
}

std::vector<unsigned char> UsbDevice::take_output() {
  return std::exchange(output_, {});
}

gboolean UsbDevice::on_request(UMockdevIoctlBase* /*base*/, Client* client, gpointer self) {
  auto* device = static_cast<UsbDevice*>(self);
  g_object_ref(client);
  asio::post(device->io_, [device, client] {
    device->handle(client);
    g_object_unref(client);
  });
  return TRUE;
}

void UsbDevice::on_connected(Client* client, GParamSpec* /*property*/, gpointer self) {
  if (umockdev_ioctl_client_get_connected(client) != 0) {
    return;
  }
  auto* device = static_cast<UsbDevice*>(self);
  asio::post(device->io_, [device, client] { device->forget(client); });
}

void UsbDevice::forget(Client* client) {
  const auto found = hosts_.find(client);
  if (found == hosts_.end()) {
    return;
  }
  hosts_.erase(found);
  g_object_unref(client);
}

void UsbDevice::handle(Client* client) {
  auto found = hosts_.find(client);
  if (found == hosts_.end()) {
    found = hosts_.try_emplace(client).first;
    found->second.on_this_plug = plugged() && node_ == umockdev_ioctl_client_get_devnode(client);
    g_object_ref(client);
    g_signal_connect(client, "notify::connected", G_CALLBACK(on_connected), this);
  }
  Host& host = found->second;
  host.last_request = steady_clock::now();
  const auto request = umockdev_ioctl_client_get_request(client);
  if (request == USBDEVFS_REAPURB || request == USBDEVFS_REAPURBNDELAY) {
    reap(client, host);
    return;
  }
  if (!host.on_this_plug) {
    umockdev_ioctl_client_complete(client, -1, ENODEV);
    return;
  }
  switch (request) {
    case USBDEVFS_GET_CAPABILITIES:
      if (auto* capabilities = argument<__u32>(client)) {
        *capabilities = USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_NO_PACKET_SIZE_LIM;
      }
      umockdev_ioctl_client_complete(client, 0, 0);
      return;
    case USBDEVFS_GETDRIVER:
      if (host.claimed || other_owner(client) != nullptr) {
        if (auto* driver = argument<usbdevfs_getdriver>(client)) {
          std::strcpy(driver->driver, "usbfs");
        }
        umockdev_ioctl_client_complete(client, 0, 0);
      } else {
        umockdev_ioctl_client_complete(client, -1, ENODATA);
      }
      return;
    case USBDEVFS_IOCTL:  // detach or attach a kernel driver: there is none
      umockdev_ioctl_client_complete(client, -1, ENODATA);
      return;
    case USBDEVFS_CLAIMINTERFACE:
      claim(client, host);
      return;
    case USBDEVFS_RELEASEINTERFACE:
      host.claimed = false;
      umockdev_ioctl_client_complete(client, 0, 0);
      return;
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_CLEAR_HALT:
      umockdev_ioctl_client_complete(client, 0, 0);
      return;
    case USBDEVFS_SUBMITURB:
      submit(client, host);
      return;
    case USBDEVFS_DISCARDURB:
      discard(client, host);
      return;
    default:
      umockdev_ioctl_client_complete(client, -1, ENOTTY);
  }
}

/// @return another program that has claimed the printer.
UsbDevice::Client* UsbDevice::other_owner(Client* client) {
  const auto owner = std::find_if(hosts_.begin(), hosts_.end(), [&](const auto& entry) {
    return entry.first != client && entry.second.claimed;
  });
  return owner == hosts_.end() ? nullptr : owner->first;
}

/// The kernel interface does not report a program that was killed while waiting for an answer. A program that
/// waits for a transfer asks every millisecond, so it is gone if it stops asking.
void UsbDevice::claim(Client* client, Host& host) {
  Client* const owner = other_owner(client);
  if (owner == nullptr) {
    host.claimed = true;
    umockdev_ioctl_client_complete(client, 0, 0);
    return;
  }
  Host& other = hosts_.at(owner);
  const bool waits_for_transfer = !other.pending.empty() || !other.completed.empty();
  if (!waits_for_transfer || other.last_request > host.last_request) {
    umockdev_ioctl_client_complete(client, -1, EBUSY);
    return;
  }
  if (steady_clock::now() - other.last_request > SILENCE_OF_THE_KILLED) {
    other.claimed = false;
    other.pending.clear();
    other.completed.clear();
  }
  host.wait = std::make_unique<asio::steady_timer>(io_, milliseconds(10));
  host.wait->async_wait([this, client](std::error_code aborted) {
    if (const auto found = hosts_.find(client); !aborted && found != hosts_.end()) {
      claim(client, found->second);
    }
  });
}

void UsbDevice::submit(Client* client, Host& host) {
  Transfer transfer;
  transfer.block.reset(
      umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(usbdevfs_urb), nullptr));
  if (!transfer.block) {
    umockdev_ioctl_client_complete(client, -1, EFAULT);
    return;
  }
  const usbdevfs_urb& block = block_of(*transfer.block);
  if (block.type != USBDEVFS_URB_TYPE_CONTROL && block.type != USBDEVFS_URB_TYPE_BULK) {
    umockdev_ioctl_client_complete(client, -1, EINVAL);
    return;
  }
  if (block.type == USBDEVFS_URB_TYPE_BULK && !host.claimed) {
    umockdev_ioctl_client_complete(client, -1, EINVAL);
    return;
  }
  transfer.buffer.reset(umockdev_ioctl_data_resolve(transfer.block.get(), offsetof(usbdevfs_urb, buffer),
                                                    static_cast<gsize>(block.buffer_length), nullptr));
  host.pending.push_back(std::move(transfer));
  umockdev_ioctl_client_complete(client, 0, 0);
  advance();
}

void UsbDevice::discard(Client* client, Host& host) {
  gulong address = 0;
  std::memcpy(&address, umockdev_ioctl_client_get_arg(client)->data, sizeof address);
  const auto transfer = std::find_if(host.pending.begin(), host.pending.end(), [&](const Transfer& pending) {
    return pending.block->client_addr == address;
  });
  if (transfer == host.pending.end()) {
    umockdev_ioctl_client_complete(client, -1, EINVAL);
    return;
  }
  umockdev_ioctl_client_complete(client, 0, 0);
  transfer->status = -ENOENT;
  complete(client, host, transfer);
}

void UsbDevice::reap(Client* client, Host& host) {
  host.reaping = true;
  if (!host.completed.empty() || !host.on_this_plug) {
    finish_reap(client, host);
    return;
  }
  advance();
  if (!host.reaping) {
    return;
  }
  if (!host.wait) {
    host.wait = std::make_unique<asio::steady_timer>(io_);
  }
  host.wait->expires_after(NOTHING_TO_REAP);
  host.wait->async_wait([this, client](std::error_code aborted) {
    const auto found = hosts_.find(client);
    if (aborted || found == hosts_.end()) {
      return;
    }
    found->second.idle = settings_.answers_idle_read;
    advance();
    if (const auto again = hosts_.find(client); again != hosts_.end() && again->second.reaping) {
      finish_reap(client, again->second);
    }
  });
}

void UsbDevice::finish_reap(Client* client, Host& host) {
  host.reaping = false;
  if (host.wait) {
    host.wait->cancel();
  }
  if (host.completed.empty()) {
    umockdev_ioctl_client_complete(client, -1, host.on_this_plug ? EAGAIN : ENODEV);
    return;
  }
  const Transfer transfer = std::move(host.completed.front());
  host.completed.pop_front();
  usbdevfs_urb& block = block_of(*transfer.block);
  block.status = transfer.status;
  block.actual_length = transfer.length;
  if (transfer.buffer) {
    const std::size_t start = block.type == USBDEVFS_URB_TYPE_CONTROL ? SETUP_SIZE : 0;
    std::copy(transfer.answer.begin(), transfer.answer.end(), transfer.buffer->data + start);
  }
  // The client's variable gets the address of its own block again, with the data in place.
  GObjectPointer<UMockdevIoctlData> pointer(
      umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(void*), nullptr));
  if (pointer) {
    umockdev_ioctl_data_set_ptr(pointer.get(), 0, transfer.block.get());
  }
  umockdev_ioctl_client_complete(client, pointer ? 0 : -1, pointer ? 0 : EFAULT);
}

void UsbDevice::complete(Client* client, Host& host, std::list<Transfer>::iterator transfer) {
  host.completed.push_back(std::move(*transfer));
  host.pending.erase(transfer);
  if (host.reaping) {
    finish_reap(client, host);
  }
}

/// Completes the transfers that can be completed now.
void UsbDevice::advance() {
  for (auto& [client, host] : hosts_) {
    const bool idle = std::exchange(host.idle, false);
    for (auto next = host.pending.begin(); next != host.pending.end();) {
      const auto transfer = next++;
      const usbdevfs_urb& block = block_of(*transfer->block);
      const auto size = static_cast<std::size_t>(block.buffer_length);
      if (block.type == USBDEVFS_URB_TYPE_CONTROL) {
        control(*transfer);
        complete(client, host, transfer);
      } else if ((block.endpoint & DIRECTION_IN) == 0) {
        if (!busy_) {
          if (transfer->buffer) {
            forward(transfer->buffer->data, size);
          }
          transfer->length = block.buffer_length;
          complete(client, host, transfer);
        }
      } else if (host.reaping && (!replies_.empty() || idle)) {
        // Only now is it sure to be there: what a killed program has not read stays in the printer.
        const auto count = std::min(size, replies_.size());
        const auto end = replies_.begin() + static_cast<std::ptrdiff_t>(count);
        transfer->answer.assign(replies_.begin(), end);
        transfer->length = static_cast<int>(count);
        replies_.erase(replies_.begin(), end);
        complete(client, host, transfer);
      }
    }
  }
}

/// Answers a control transfer: eight bytes that say what is wanted, then the data.
void UsbDevice::control(Transfer& transfer) const {
  const std::size_t size =
      transfer.buffer ? static_cast<std::size_t>(block_of(*transfer.block).buffer_length) : 0;
  transfer.status = -EPIPE;
  if (size < SETUP_SIZE) {
    return;
  }
  const unsigned char* setup = transfer.buffer->data;
  switch (setup[0] * 256U + setup[1]) {
    case 0x8006:  // get a descriptor
      if (setup[3] == 1) {
        transfer.answer = device_descriptor();
      } else if (setup[3] == 2) {
        transfer.answer = configuration_descriptor(plugged_protocol_);
      } else if (setup[3] == 3) {
        transfer.answer = string_descriptor(setup[2]);
      } else {
        return;
      }
      break;
    case 0x8008:  // get the configuration
      transfer.answer = {1};
      break;
    case 0xa100:  // the printer class's device ID
      transfer.answer = device_id();
      break;
    case 0xa101:  // its port status: no error, selected
      transfer.answer = {0x18};
      break;
    default:
      return;
  }
  const auto wanted = std::min<std::size_t>(setup[6] + setup[7] * 256U, size - SETUP_SIZE);
  transfer.answer.resize(std::min(transfer.answer.size(), wanted));
  transfer.status = 0;
  transfer.length = static_cast<int>(transfer.answer.size());
}

void UsbDevice::forward(const unsigned char* bytes, std::size_t count) {
  received_ += count;
  output_.insert(output_.end(), bytes, bytes + count);
  to_printer_.insert(to_printer_.end(), bytes, bytes + count);
  if (!socket_) {
    auto socket = std::make_unique<asio::ip::tcp::socket>(io_);
    std::error_code error;
    socket->connect(printer_, error);
    if (error) {
      to_printer_.clear();
      return;
    }
    socket->set_option(asio::ip::tcp::no_delay(true), error);
    socket_ = std::move(socket);
    read_from_printer();
  }
  write_to_printer();
}

void UsbDevice::write_to_printer() {
  if (writing_ || to_printer_.empty() || !socket_) {
    return;
  }
  writing_ = true;
  const auto bytes = std::make_shared<Bytes>(std::exchange(to_printer_, {}));
  asio::async_write(*socket_, asio::buffer(*bytes), [this, bytes, socket = socket_.get()](auto error, auto) {
    if (socket != socket_.get()) {
      return;
    }
    writing_ = false;
    if (error) {
      disconnect();
    } else {
      write_to_printer();
    }
  });
}

void UsbDevice::read_from_printer() {
  const auto bytes = std::make_shared<std::array<unsigned char, 4096>>();
  socket_->async_read_some(
      asio::buffer(*bytes), [this, bytes, socket = socket_.get()](auto error, auto count) {
        if (socket != socket_.get()) {
          return;
        }
        if (error) {
          disconnect();
          return;
        }
        replies_.insert(replies_.end(), bytes->begin(), bytes->begin() + static_cast<std::ptrdiff_t>(count));
        read_from_printer();
        advance();
      });
}

void UsbDevice::disconnect() {
  socket_.reset();
  to_printer_.clear();
  writing_ = false;
}
