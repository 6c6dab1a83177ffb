#pragma once

// What participant and endpoint data share: the walk over a payload that is a parameter list, the keeping of
// parameters that are not read, and the values that both kinds of data contain.
//
// How an impossible value is judged: the record is refused where it would be misleading without the value
// (its key, its names, the policies that decide a match); anything else that is malformed stays at its
// default, and the parameter is kept raw like an unknown one. A peer with one strange optional parameter must
// stay visible.

#include "rtps/wire/discovery_data.h"
#include "rtps/wire/elements.h"
#include "rtps/wire/encapsulation.h"
#include "rtps/wire/parameter_list.h"

namespace meridian::rtps {

enum class Verdict {
    taken,   // read and stored
    unused,  // to be kept raw; refuses the record only when unknown and marked as to be understood
    refused, // the record is not usable with this value
};
inline Verdict required(bool read) {
    return read ? Verdict::taken : Verdict::refused;
}
inline Verdict if_possible(bool read) {
    return read ? Verdict::taken : Verdict::unused;
}

/// The parameters of a payload with a PL_CDR encapsulation header, in order.
class PayloadParameters {
  public:
    /// False, with the reason in error, when the payload is too short or no parameter list.
    static bool open(ByteView payload, PayloadParameters& list, std::string& error);

    /// Calls handle(parameter) -> Verdict for each and keeps the unused ones in raw. False, with the reason
    /// in error, when one was refused or the list is malformed.
    template <typename Handle>
    bool for_each(std::vector<RawParameter>& raw, std::string& error, Handle handle) {
        Parameter parameter;
        while (reader_.next(parameter)) {
            Verdict verdict = handle(parameter);
            if (verdict == Verdict::unused)
                verdict = keep(parameter, raw);
            if (verdict == Verdict::refused) {
                error = describe(parameter);
                return false;
            }
        }
        return check_complete(error);
    }
    Endianness endianness() const { return order_; }

  private:
    static Verdict keep(const Parameter& parameter, std::vector<RawParameter>& raw);
    std::string describe(const Parameter& parameter) const;
    bool check_complete(std::string& error) const;

    ParameterListReader reader_{ByteView(), native_endianness()};
    Endianness order_ = native_endianness();
};

/// Reads a whole value with a function of elements.h or below; value stays untouched when that fails.
template <typename T, typename Read>
bool read_value(const Parameter& parameter, T& value, Read read) {
    ByteReader reader = parameter.reader();
    T fresh{};
    if (!read(reader, fresh))
        return false;
    value = std::move(fresh);
    return true;
}
template <typename T>
bool read_number(const Parameter& parameter, T& value) {
    return parameter.reader().read(value);
}
/// An enumeration whose enumerators are lowest to highest without a hole.
template <typename Enum>
bool read_enum(ByteReader& reader, Enum& value, Enum lowest, Enum highest) {
    uint32_t number = 0;
    if (!reader.read(number) || number < static_cast<uint32_t>(lowest) ||
        number > static_cast<uint32_t>(highest))
        return false;
    value = static_cast<Enum>(number);
    return true;
}
/// Refuses negative durations. Some peers write the infinite one with another fraction: all of those become
/// kDurationInfinite.
bool read_duration(ByteReader& reader, WireDuration& duration);
bool read_flag(const Parameter& parameter, bool& value);
bool read_text(const Parameter& parameter, std::string& text);
bool read_texts(ByteReader& reader, std::vector<std::string>& texts);
bool read_octets(const Parameter& parameter, ByteBuffer& bytes);
bool read_properties(const Parameter& parameter, std::vector<Property>& properties);
/// Appends the locator. A UDP locator without a port, or with one above 65535, is not usable and is left
/// out.
bool read_locator_into(const Parameter& parameter, LocatorList& list);

void add_text(ParameterListWriter& list, uint16_t id, const std::string& text);
void add_octets(ParameterListWriter& list, uint16_t id, const ByteBuffer& bytes);
void add_guid(ParameterListWriter& list, uint16_t id, const Guid& guid);
void add_flag(ParameterListWriter& list, uint16_t id, bool value);
void add_duration(ParameterListWriter& list, uint16_t id, WireDuration duration);
void add_locators(ParameterListWriter& list, uint16_t id, const LocatorList& locators);
void add_properties(ParameterListWriter& list, const std::vector<Property>& properties);
void write_texts(ByteWriter& writer, const std::vector<std::string>& texts);
/// Raw parameters mean something only in the byte order they came in; they are left out of a list in the
/// other one.
void add_raw(ParameterListWriter& list, const std::vector<RawParameter>& raw, Endianness order);

/// An encapsulation header, the parameters that fill(ParameterListWriter&) adds, and the sentinel.
template <typename Fill>
ByteBuffer encode_payload(Fill fill) {
    ByteBuffer bytes;
    write_encapsulation(bytes, Encoding::pl_cdr, native_endianness());
    ParameterListWriter list(bytes);
    fill(list);
    list.add_sentinel();
    return bytes;
}

} // namespace meridian::rtps
