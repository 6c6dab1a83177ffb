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

/// A property without a name means nothing, and takes many times the bytes that announce it. Of the others
/// 1,024 are kept.
void drop_useless(std::vector<Property>& properties);

/// Refuses negative durations. Some peers write the infinite one with another fraction: all of those become
/// kDurationInfinite.
bool read_member(ByteReader& reader, WireDuration& duration);
template <typename T>
bool read_member(ByteReader& reader, T& value) {
    return read_element(reader, value);
}

/// The values that stand in a parameter one after the other; they stay untouched when one cannot be read.
template <typename... Members>
bool read_members(const Parameter& parameter, Members&... members) {
    ByteReader reader = parameter.reader();
    std::tuple<Members...> fresh;
    if (!std::apply([&](auto&... value) { return (read_member(reader, value) && ...); }, fresh))
        return false;
    std::tie(members...) = std::move(fresh);
    return true;
}
template <typename... Members>
void add_members(ParameterListWriter& list, uint16_t id, const Members&... members) {
    list.add(id, [&](ByteWriter& writer) { (write_element(writer, members), ...); });
}

/// How a parameter is read and written.
enum class Rule {
    always,   // always written; the record is refused when it cannot be read
    when_set, // written when there is something in it; the record is refused likewise
    lenient,  // always written; stays at its default when it cannot be read
    lenient_when_set,
};

// A record describes its parameters once, as a function of a codec: either of the two below, which have the
// same operations.

/// Reads the member that is described for one parameter.
class ParameterDecoder {
  public:
    explicit ParameterDecoder(const Parameter& parameter) : parameter_(parameter) {}

    template <typename... Members>
    void operator()(uint16_t id, Rule rule, Members&... members) {
        if (id != parameter_.base_id())
            return;
        const bool read = read_members(parameter_, members...);
        verdict_ = rule == Rule::always || rule == Rule::when_set ? required(read) : if_possible(read);
    }
    /// One parameter for each, also those that cannot be reached: what was announced is shown.
    void locators(uint16_t id, LocatorList& list);
    /// The whole value as it stands.
    void undecoded(uint16_t id, ByteBuffer& bytes);

    Verdict verdict() const { return verdict_; }

  private:
    const Parameter& parameter_;
    Verdict verdict_ = Verdict::unused;
};

class ParameterEncoder {
  public:
    /// What is undecoded means something only in the byte order it came in; it is left out of a list in the
    /// other one.
    ParameterEncoder(ParameterListWriter& list, Endianness raw_order)
        : list_(list), keeps_raw_(raw_order == native_endianness()) {}

    template <typename... Members>
    void operator()(uint16_t id, Rule rule, const Members&... members) {
        if (rule == Rule::always || rule == Rule::lenient || (is_set(members) || ...))
            add_members(list_, id, members...);
    }
    void locators(uint16_t id, const LocatorList& list);
    void undecoded(uint16_t id, const ByteBuffer& bytes);
    void raw(const std::vector<RawParameter>& raw);

  private:
    static bool is_set(const std::string& text) { return !text.empty(); }
    template <typename T>
    static bool is_set(const std::vector<T>& values) {
        return !values.empty();
    }
    template <typename T>
    static bool is_set(const std::optional<T>& value) {
        return value.has_value();
    }
    template <typename T>
    static bool is_set(const T& value) {
        if constexpr (std::is_arithmetic_v<T>)
            return value != 0;
        return true;
    }

    ParameterListWriter& list_;
    const bool keeps_raw_;
};

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
