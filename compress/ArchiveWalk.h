// The walk over an archive's records, as the extraction reads them: the length list cuts the
// record text, each record's stream is expanded, and the bar in what it expands to tells an
// intact member from a damaged record. It writes nothing, so listing and testing an archive
// take the same steps as extracting it.
#pragma once

#include <cstdint>
#include <string_view>

#include <zrkKVL/Text.h>
#include "compress/StringCompression.h"

namespace zrk::archive {

class RecordWalk {
 public:
  // Walks the archive whose file holds `bytes`; they must outlive the walk.
  explicit RecordWalk(std::string_view bytes);

  // Steps to the next record and expands it; false after the last. A list entry or a record
  // that cannot be cut is the failure the extraction meets there.
  bool next();

  // The record's number, from 1 in list order.
  int32_t number() const { return number_; }
  // What the record's stream expanded to; valid until the next step.
  std::string_view element() const { return element_; }
  // Whether zlib expanded the stream whole to the element length the record stores.
  bool expandedWhole() const { return whole_; }
  // Whether the element has its bar where a member's name length can end: within its first 11
  // characters, after at least one. Any other record is damaged.
  bool intact() const { return bar_ >= 1 && bar_ <= 11; }

  // An intact record's stored name and where its content starts in the element. A name length
  // that is no number or reaches beyond the element is the extraction's failure.
  struct Member {
    Text name;
    size_t contentFrom;
  };
  Member member() const;

  // The element's bytes from `from` with CR LF behind them, as a file written for it holds.
  std::string_view lineFrom(size_t from);

 private:
  std::string_view lengths_, records_;
  compression::WorkBuffer buffer_;
  int64_t listAt_ = 1, recordAt_ = 1;           // 1-based: the next list entry, the record
  int64_t entryLength_ = 0, recordLength_ = 0;  // of the record dealt with last
  int32_t number_ = 0;
  std::string_view element_;
  bool whole_ = false;
  int64_t bar_ = 0;
};

}  // namespace zrk::archive
