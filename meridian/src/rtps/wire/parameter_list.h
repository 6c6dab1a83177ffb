#pragma once

// Parameter lists (OMG DDSI-RTPS 2.5, 9.4.2.11 and 9.6.2): a 16-bit id, a 16-bit length that is a multiple of
// four, the value, and so on up to a sentinel.

#include "rtps/wire/byte_reader.h"
#include "rtps/wire/byte_writer.h"
#include "rtps/wire/parameter_ids.h"

namespace meridian::rtps {

/// Set in the id of a parameter that a receiver must not skip when it does not know it.
constexpr uint16_t kPidMustUnderstandBit = 0x4000;

struct Parameter {
    uint16_t id = 0; // as it stood, with both bits
    ByteView value;  // its length is a multiple of four
    Endianness endianness = native_endianness();

    /// The id that tells what the parameter is: without the must-understand bit.
    uint16_t base_id() const { return static_cast<uint16_t>(id & ~kPidMustUnderstandBit); }
    bool must_understand() const { return (id & kPidMustUnderstandBit) != 0; }
    /// True for a parameter that must not be skipped and is not known here.
    bool not_understood() const { return must_understand() && pid::find(base_id()) == nullptr; }
    /// Alignment within a parameter counts from its value.
    ByteReader reader() const { return ByteReader(value, endianness); }
};

/// Walks a list. PID_PAD is passed over silently.
class ParameterListReader {
  public:
    ParameterListReader(ByteView bytes, Endianness order) : reader_(bytes, order) {}

    /// False at the sentinel, and where the list is malformed: a length that is not a multiple of four or
    /// leads beyond the bytes, or no sentinel at all.
    bool next(Parameter& parameter);
    /// After next returned false: true when the sentinel was reached.
    bool complete() const { return complete_; }
    /// Bytes read so far; the size of the list with its sentinel when complete.
    size_t consumed() const { return reader_.position(); }

  private:
    ByteReader reader_;
    bool complete_ = false;
};

/// Appends parameters to a buffer that the caller owns. Every value is padded to a multiple of four.
class ParameterListWriter {
  public:
    static constexpr size_t kMaxValueSize = 0xfffc;

    explicit ParameterListWriter(ByteBuffer& bytes, Endianness order = native_endianness())
        : bytes_(bytes), order_(order) {}

    /// write_value(ByteWriter&) writes the value. A value above kMaxValueSize does not fit into a list: it is
    /// left out and add returns false.
    template <typename WriteValue>
    bool add(uint16_t id, WriteValue write_value) {
        const size_t start = bytes_.size();
        ByteWriter writer(bytes_, order_);
        const pid::Info* info = pid::find(id);
        const bool marked = info != nullptr && (info->flags & pid::must_understand) != 0;
        writer.write(static_cast<uint16_t>(marked ? id | kPidMustUnderstandBit : id));
        writer.write(uint16_t{0});
        writer.set_origin();
        write_value(writer);
        return close(start);
    }
    bool add_bytes(uint16_t id, ByteView value) {
        return add(id, [value](ByteWriter& writer) { writer.write_bytes(value); });
    }
    void add_sentinel();

  private:
    bool close(size_t start);

    ByteBuffer& bytes_;
    Endianness order_;
};

} // namespace meridian::rtps
