// AddressList: the IPv4 addresses of one link in the kernel's order, followed one address message
// at a time, so that the cost of an address event does not grow with the number of addresses the
// link holds.
//
// The kernel's order: primary addresses first, each new primary placed after the last primary of
// the same or a wider scope; secondary addresses (IFA_F_SECONDARY: another address of the same
// subnet was there first) after all primaries, in the order they came. When a primary goes and a
// secondary of its subnet is promoted (promote_secondaries), the kernel moves the promoted address
// to after the last later primary of at least the deleted one's scope, or else into the deleted
// one's place; the kernel announces the deletion and then the promotion, and the list keeps the
// deleted address's place in between to do the same.
#pragma once

#include <cstdint>
#include <list>
#include <vector>

#include "tq/platform/base/string.h"

namespace tq::store {

// An IPv4 address as dotted-quad text ("192.168.1.20"), from four bytes in network byte order.
String dottedQuad(uint32_t networkOrder);
// The subnet mask of a prefix length as dotted-quad text ("255.255.255.0" for 24); one shared string
// per length.
const String& subnetMaskText(uint8_t prefix);

// What the kernel says of one address.
struct Address {
  uint32_t local = 0;    // network byte order
  uint32_t address = 0;  // the peer (IFA_ADDRESS), equal to local on broadcast links
  uint8_t prefix = 0;
  uint8_t scope = 0;
  bool secondary = false;
  bool hasBroadcast = false;
  uint32_t broadcast = 0;
  bool sameAs(const Address& o) const {
    return local == o.local && address == o.address && prefix == o.prefix && scope == o.scope &&
           secondary == o.secondary && hasBroadcast == o.hasBroadcast && broadcast == o.broadcast;
  }
};

// An address on a list, with the texts the store's value is made of, made when first asked for.
struct ListedAddress : Address {
  explicit ListedAddress(const Address& a) : Address(a) {}
  const String& localText() const;
  const String& maskText() const { return subnetMaskText(prefix); }
  const String& broadcastText() const;
  void forgetTexts() {
    localText_ = String();
    broadcastText_ = String();
  }

 private:
  mutable String localText_;
  mutable String broadcastText_;
};

class AddressList {
 public:
  AddressList() = default;
  AddressList(const AddressList&) = delete;  // holds iterators into itself
  AddressList& operator=(const AddressList&) = delete;

  // An address announced (RTM_NEWADDR): a new one goes where the kernel puts it, a known one keeps
  // its place (or moves, when promoted). Dump answers are added at the end in the order given.
  // Returns true when the list changed.
  bool add(const Address& a, bool fromDump);
  // An address removed (RTM_DELADDR). Returns true when it was there.
  bool remove(const Address& a);
  void clear();
  // Replaces the list with the answers of a dump, in the order given (as add(a, true) for each).
  void assign(const Address* first, std::size_t count);
  // Forgets the place of the primary deleted last (a promotion can only follow its deletion).
  void forgetPendingPromotion() { hole_ = false; }
  // Whether the list holds exactly these addresses, in this order.
  bool sameAs(const Address* first, std::size_t count) const;

  bool empty() const { return list_.empty(); }
  std::size_t size() const { return list_.size(); }
  // Whether an address with this local address is on the list (a walk of the list: asked only when
  // a route depends on the answer).
  bool hasLocal(uint32_t local) const;
  // In the kernel's order.
  const std::list<ListedAddress>& addresses() const { return list_; }

 private:
  struct Key {
    uint32_t local, address;
    uint8_t prefix;
    bool operator==(const Key&) const = default;
  };
  static Key keyOf(const Address& a) { return {a.local, a.address, a.prefix}; }
  using Iterator = std::list<ListedAddress>::iterator;

  // From an address's key to its place on the list: open addressing with linear probing over a
  // power-of-two table, at most half full, so that the list's addresses cost one allocation
  // between them; an entry is erased by moving the ones after it back, so no probe passes a hole.
  class Index {
   public:
    explicit Index(Iterator none) : none_(none) {}
    Iterator* find(const Key& key);
    void insert(Iterator it);  // its key is not in the index yet
    void erase(Iterator it);   // before the list lets go of it
    void clear();
    void reserve(std::size_t count);

   private:
    std::size_t home(const Key& key) const;
    void resize(std::size_t slots);
    std::vector<Iterator> slots_;
    Iterator none_;
    std::size_t count_ = 0;
    unsigned shift_ = 64;
  };

  // Moves a primary (already in list_, before the secondaries) to its place among the primaries.
  void insertPrimary(Iterator at);

  std::list<ListedAddress> list_;
  Index index_{list_.end()};
  std::size_t primaries_ = 0;          // the primaries come first
  Iterator secondaries_ = list_.end(); // the first secondary, or end()
  // The place of the primary deleted last, until the next event: the element after it, and its scope.
  bool hole_ = false;
  Iterator holeNext_;
  uint8_t holeScope_ = 0;
};

}  // namespace tq::store
