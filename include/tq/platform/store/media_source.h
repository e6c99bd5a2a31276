// MediaSource: where the media word of a network interface comes from.
//
// The media word describes an interface's current medium the way the interface-media query of the
// BSD drivers did: the media subtype in the low five bits (3 = 10baseT/UTP ... 16 = 1000baseT,
// 18 = 10GbaseSR, 19 = 10GbaseLR, 0 = unknown) and option flags in higher bits (0x00100000 full
// duplex, 0x00200000 half duplex, 0x00400000 flow control, 0x08000000 hardware loopback).
//
// systemMediaSource() answers from the Linux kernel (ethtool); tests and hosts may supply their own.
// Threads: a source may be asked from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tq/platform/base/string.h"

namespace tq {

class MediaSource {
 public:
  enum class Status {
    Ok,        // word holds the interface's active media word
    NoSocket,  // the query socket could not be opened
    Failed,    // no such interface, or its driver reports no media
  };
  struct Result {
    Status status = Status::Failed;
    uint32_t word = 0;
  };

  virtual ~MediaSource() = default;
  // The active media word of the interface named `interfaceName` (at most 15 bytes of UTF-8; longer
  // names are the caller's contract to refuse).
  virtual Result queryMedia(const String& interfaceName) = 0;
  // The media words of many interfaces at once, one result for each name of `names`, in that
  // order. The default asks queryMedia for each; a source may answer all of them from one read.
  virtual std::vector<Result> queryMediaOfEach(std::span<const String> interfaceNames);
};

// The kernel's answer, through ethtool: one shared instance for the process.
std::shared_ptr<MediaSource> systemMediaSource();

}  // namespace tq
