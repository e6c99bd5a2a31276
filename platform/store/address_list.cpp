#include "address_list.h"

#include <arpa/inet.h>

namespace tq::store {

namespace {

String dotted(uint32_t networkOrder) {
  char text[INET_ADDRSTRLEN] = {};
  in_addr a{networkOrder};
  inet_ntop(AF_INET, &a, text, sizeof text);
  return String::fromUTF8(text);
}

uint32_t maskOf(uint8_t prefix) {
  uint32_t host = prefix == 0 ? 0 : prefix >= 32 ? 0xFFFFFFFFu : ~((1u << (32 - prefix)) - 1);
  return htonl(host);
}

}  // namespace

void Address::makeTexts() const {
  if (texts_.made) return;
  texts_.local = dotted(local);
  texts_.mask = dotted(maskOf(prefix));
  texts_.broadcast = hasBroadcast ? dotted(broadcast) : String();
  texts_.made = true;
}

const String& Address::localText() const {
  makeTexts();
  return texts_.local;
}

const String& Address::maskText() const {
  makeTexts();
  return texts_.mask;
}

const String& Address::broadcastText() const {
  makeTexts();
  return texts_.broadcast;
}

bool AddressList::hasLocal(uint32_t local) const { return localCount_.count(local) != 0; }

void AddressList::countLocal(uint32_t local, int delta) {
  auto& n = localCount_[local];
  n += delta;
  if (n <= 0) localCount_.erase(local);
}

void AddressList::insertPrimary(Iterator at) {
  // After the last primary whose scope is at least as wide (scope numbers grow as scopes narrow).
  auto end = secondaries_;
  auto it = end;
  Iterator dest = list_.begin();
  while (it != list_.begin()) {
    --it;
    if (it == at) continue;
    if (it->scope >= at->scope) {
      dest = std::next(it);
      break;
    }
  }
  if (dest != at) list_.splice(dest, list_, at);
}

bool AddressList::add(Address a, bool fromDump) {
  Key key = keyOf(a);
  auto found = index_.find(key);
  if (found == index_.end()) {
    hole_ = false;
    bool secondary = a.secondary;
    Iterator it;
    if (fromDump || secondary) {
      it = list_.insert(list_.end(), std::move(a));
      if (secondary) {
        if (secondaries_ == list_.end()) secondaries_ = it;
      } else {
        ++primaries_;  // a dump lists the primaries first
      }
    } else {
      it = list_.insert(secondaries_, std::move(a));
      insertPrimary(it);
      ++primaries_;
    }
    index_.emplace(key, it);
    countLocal(key.local, 1);
    return true;
  }
  Iterator it = found->second;
  bool changed = it->hasBroadcast != a.hasBroadcast || it->broadcast != a.broadcast || it->scope != a.scope;
  it->hasBroadcast = a.hasBroadcast;
  it->broadcast = a.broadcast;
  it->scope = a.scope;
  if (changed) it->forgetTexts();
  if (it->secondary && !a.secondary) {
    // Promoted: its subnet's primary went just before.
    if (secondaries_ == it) secondaries_ = std::next(it);
    it->secondary = false;
    if (hole_) {
      if (holeNext_ == it) holeNext_ = std::next(it);
      Iterator dest = holeNext_;
      for (auto p = holeNext_; p != secondaries_; ++p)
        if (p != it && p->scope >= holeScope_) dest = std::next(p);
      if (dest != it) list_.splice(dest, list_, it);
      ++primaries_;
    } else {
      list_.splice(secondaries_, list_, it);
      insertPrimary(it);
      ++primaries_;
    }
    changed = true;
  }
  hole_ = false;
  return changed;
}

bool AddressList::remove(const Address& a) {
  auto found = index_.find(keyOf(a));
  if (found == index_.end()) {
    hole_ = false;
    return false;
  }
  Iterator it = found->second;
  index_.erase(found);
  countLocal(it->local, -1);
  hole_ = !it->secondary;
  if (it->secondary) {
    if (secondaries_ == it) secondaries_ = std::next(it);
  } else {
    --primaries_;
    holeNext_ = std::next(it);
    holeScope_ = it->scope;
  }
  list_.erase(it);
  return true;
}

void AddressList::clear() {
  list_.clear();
  index_.clear();
  localCount_.clear();
  primaries_ = 0;
  secondaries_ = list_.end();
  hole_ = false;
}

}  // namespace tq::store
