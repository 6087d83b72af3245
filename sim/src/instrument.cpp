#include "zolt_sim/instrument.hpp"

#include <algorithm>
#include <utility>

#include "output_queue.hpp"

namespace zolt_sim {
namespace {

constexpr std::uint8_t kIdentityCommand[3] = {0x41, 0x42, 0x43};

std::size_t field_index(IdentityField field) noexcept { return static_cast<std::size_t>(field); }

Payload text_payload(std::string_view text) {
  Payload payload{};
  const std::size_t length = std::min(text.size(), kPayloadSize);
  for (std::size_t i = 0; i < length; ++i) payload[i] = static_cast<std::uint8_t>(text[i]);
  return payload;
}

}  // namespace

Instrument::Instrument() : output_(std::make_unique<OutputQueue>()) {
  identity_[field_index(IdentityField::manufacturer)] = text_payload("ZOLT");
  identity_[field_index(IdentityField::device_class)] = text_payload("TDC");
  identity_[field_index(IdentityField::serial)] = text_payload("SIM00001");
  install_identity_handlers();
}

Instrument::~Instrument() = default;

void Instrument::install_identity_handlers() {
  for (std::size_t i = 0; i < 3; ++i) {
    const auto field = static_cast<IdentityField>(i);
    set_handler(kIdentityCommand[i], [field](Instrument& self, const Command&) -> std::optional<Payload> {
      return self.identity_payload(field);
    });
  }
}

void Instrument::host_write(const std::uint8_t* data, std::size_t length) {
  if (data == nullptr) return;
  std::lock_guard dispatching(dispatch_mutex_);
  for (std::size_t i = 0; i < length; ++i) {
    if (link_closed()) return;
    assembly_[assembled_++] = data[i];
    if (assembled_ == kFrameSize) {
      assembled_ = 0;
      dispatch(assembly_);
    }
  }
}

void Instrument::dispatch(const Frame& frame) {
  Command command;
  command.id = frame[0];
  std::copy(frame.begin() + 1, frame.end(), command.payload.begin());
  CommandHandler handler;
  {
    std::lock_guard lock(mutex_);
    received_.push_back(ReceivedFrame{frame, std::chrono::steady_clock::now()});
    if (auto found = handlers_.find(command.id); found != handlers_.end()) handler = found->second;
  }
  received_changed_.notify_all();
  if (!handler) return;  // the real instrument ignores unknown ids
  if (std::optional<Payload> reply = handler(*this, command)) deliver_reply(command.id, *reply);
}

void Instrument::deliver_reply(std::uint8_t command_id, Payload payload) {
  std::vector<std::uint8_t> wire;
  std::chrono::steady_clock::time_point due;
  {
    std::lock_guard lock(mutex_);
    if (link_closed_ || faults_.silent) return;
    if (faults_.drop_replies > 0) {
      --faults_.drop_replies;
      return;
    }
    wire = faults_.garbage_before_reply;
    for (int i = 0; i < faults_.foreign_frames_before_reply; ++i) {
      const Frame foreign = make_frame(faults_.foreign_rid, Payload{});
      wire.insert(wire.end(), foreign.begin(), foreign.end());
    }
    if (faults_.corrupt_echo) payload[kPayloadSize - 1] = static_cast<std::uint8_t>(~payload[kPayloadSize - 1]);
    const Frame reply = make_frame(reply_id(command_id), payload);
    wire.insert(wire.end(), reply.begin(), reply.end());
    due = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(faults_.reply_delay_ms, 0));
    ++replies_sent_;
  }
  output_->push(std::move(wire), due);
}

std::size_t Instrument::host_read(std::uint8_t* out, std::size_t capacity, int timeout_ms) {
  return output_->read(out, capacity, timeout_ms);
}

std::size_t Instrument::host_available() const { return output_->available(); }

void Instrument::host_purge() { output_->purge_due(); }

void Instrument::set_handler(std::uint8_t command_id, CommandHandler handler) {
  std::lock_guard lock(mutex_);
  if (handler) {
    handlers_[command_id] = std::move(handler);
  } else {
    handlers_.erase(command_id);
  }
}

bool Instrument::has_handler(std::uint8_t command_id) const {
  std::lock_guard lock(mutex_);
  return handlers_.count(command_id) != 0;
}

void Instrument::send_frame(std::uint8_t rid, const Payload& payload) {
  const Frame frame = make_frame(rid, payload);
  send_bytes(frame.data(), frame.size());
}

void Instrument::send_bytes(const std::uint8_t* data, std::size_t length) {
  if (data == nullptr || length == 0) return;
  output_->push(std::vector<std::uint8_t>(data, data + length), std::chrono::steady_clock::now());
}

void Instrument::set_identity(IdentityField field, std::string_view text) {
  set_identity_payload(field, text_payload(text));
}

void Instrument::set_identity_payload(IdentityField field, const Payload& payload) {
  std::lock_guard lock(mutex_);
  identity_[field_index(field)] = payload;
}

Payload Instrument::identity_payload(IdentityField field) const {
  std::lock_guard lock(mutex_);
  return identity_[field_index(field)];
}

void Instrument::set_faults(const Faults& faults) {
  std::lock_guard lock(mutex_);
  faults_ = faults;
}

Faults Instrument::faults() const {
  std::lock_guard lock(mutex_);
  return faults_;
}

void Instrument::set_silent(bool silent) {
  std::lock_guard lock(mutex_);
  faults_.silent = silent;
}

void Instrument::drop_next_replies(int count) {
  std::lock_guard lock(mutex_);
  faults_.drop_replies = std::max(count, 0);
}

void Instrument::close_link() {
  {
    std::lock_guard lock(mutex_);
    link_closed_ = true;
  }
  output_->close();
  received_changed_.notify_all();
}

bool Instrument::link_closed() const {
  std::lock_guard lock(mutex_);
  return link_closed_;
}

std::vector<ReceivedFrame> Instrument::received_frames() const {
  std::lock_guard lock(mutex_);
  return received_;
}

std::size_t Instrument::received_count() const {
  std::lock_guard lock(mutex_);
  return received_.size();
}

void Instrument::clear_received() {
  std::lock_guard lock(mutex_);
  received_.clear();
}

bool Instrument::wait_for_received(std::size_t count, int timeout_ms) const {
  std::unique_lock lock(mutex_);
  return received_changed_.wait_for(lock, std::chrono::milliseconds(std::max(timeout_ms, 0)),
                                    [&] { return received_.size() >= count; });
}

std::size_t Instrument::replies_sent() const {
  std::lock_guard lock(mutex_);
  return replies_sent_;
}

}  // namespace zolt_sim
