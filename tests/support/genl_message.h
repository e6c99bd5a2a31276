// One generic netlink message built by hand for the decoders' tests: the netlink header, the
// generic header, then attributes (nests between begin and end).
#pragma once

#include <linux/genetlink.h>
#include <linux/netlink.h>

#include <cstring>
#include <string>
#include <vector>

namespace tq::test {

class GenlMessage {
 public:
  GenlMessage(uint16_t type, uint8_t command) : bytes_(NLMSG_HDRLEN + GENL_HDRLEN) {
    std::memcpy(&bytes_[4], &type, 2);
    bytes_[NLMSG_HDRLEN] = command;
    bytes_[NLMSG_HDRLEN + 1] = 1;  // the version
  }
  GenlMessage& put(uint16_t type, const void* data, std::size_t size) {
    std::size_t at = bytes_.size();
    bytes_.resize(at + NLA_ALIGN(NLA_HDRLEN + size));
    uint16_t length = static_cast<uint16_t>(NLA_HDRLEN + size);
    std::memcpy(&bytes_[at], &length, 2);
    std::memcpy(&bytes_[at + 2], &type, 2);
    if (size) std::memcpy(&bytes_[at + NLA_HDRLEN], data, size);
    return *this;
  }
  GenlMessage& u8(uint16_t type, uint8_t v) { return put(type, &v, 1); }
  GenlMessage& u16(uint16_t type, uint16_t v) { return put(type, &v, 2); }
  GenlMessage& u32(uint16_t type, uint32_t v) { return put(type, &v, 4); }
  GenlMessage& str(uint16_t type, const std::string& s) { return put(type, s.c_str(), s.size() + 1); }
  GenlMessage& bytes(uint16_t type, const std::vector<uint8_t>& b) { return put(type, b.data(), b.size()); }
  GenlMessage& words(uint16_t type, const std::vector<uint32_t>& w) { return put(type, w.data(), w.size() * 4); }
  GenlMessage& begin(uint16_t type) {
    nests_.push_back(bytes_.size());
    return put(type | NLA_F_NESTED, nullptr, 0);
  }
  GenlMessage& end() {
    uint16_t length = static_cast<uint16_t>(bytes_.size() - nests_.back());
    std::memcpy(&bytes_[nests_.back()], &length, 2);
    nests_.pop_back();
    return *this;
  }
  // The finished message, its length filled in.
  std::vector<uint8_t> done() const {
    std::vector<uint8_t> out = bytes_;
    uint32_t length = static_cast<uint32_t>(out.size());
    std::memcpy(out.data(), &length, 4);
    return out;
  }

 private:
  std::vector<uint8_t> bytes_;
  std::vector<std::size_t> nests_;
};

}  // namespace tq::test
