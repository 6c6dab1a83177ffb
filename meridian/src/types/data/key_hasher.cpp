#include "types/data/key_hasher.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "rtps/wire/byte_writer.h"
#include "types/model/md5.h"

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteWriter;

namespace {

/// A longer key is hashed.
constexpr size_t kMaxPlainKey = 16;

/// Writes what a walk tells as plain CDR.
class KeyWriter final : public ValueSink {
  public:
    KeyWriter(ByteWriter& writer, bool xcdr2) : writer_(writer), xcdr2_(xcdr2) {}

    bool scalar(const Type& type, const Scalar& value) override {
        switch (type.kind) {
            case DDS_TK_STRING:
                writer_.write_string(value.text);
                return true;
            case DDS_TK_WSTRING:
                writer_.write(static_cast<uint32_t>(value.wide_text.size() * 2));
                for (char16_t unit : value.wide_text)
                    writer_.write(static_cast<uint16_t>(unit));
                return true;
            case DDS_TK_FLOAT:
                writer_.write(static_cast<float>(value.real));
                return true;
            case DDS_TK_DOUBLE:
                writer_.write(value.real);
                return true;
            case DDS_TK_LONGDOUBLE: {
                auto octets = value.octets;
                std::reverse(octets.begin(), octets.end());
                writer_.align(8);
                writer_.write_bytes(octets);
                return true;
            }
            default:
                return integer(number_size(type), value.bits);
        }
    }

    /// Structures have no headers here, unions none of their own.
    bool begin(const Type& type, uint64_t count) override {
        const bool is_map = type.kind == DDS_TK_MAP;
        const bool is_collection = is_map || type.kind == DDS_TK_SEQUENCE || type.kind == DDS_TK_ARRAY;
        const bool header =
            xcdr2_ && is_collection && !(is_primitive(type.content) && (!is_map || is_primitive(type.key)));
        if (header)
            writer_.write(uint32_t{0});
        const size_t start = header ? writer_.position() : 0;
        if (is_map || type.kind == DDS_TK_SEQUENCE)
            writer_.write(static_cast<uint32_t>(count));
        return headers_.push(start);
    }
    bool end(const Type&) override {
        const size_t start = headers_.back();
        headers_.pop();
        if (start != 0)
            writer_.patch(start - 4, static_cast<uint32_t>(writer_.position() - start));
        return true;
    }

  private:
    bool integer(size_t size, uint64_t bits) {
        switch (size) {
            case 1:
                writer_.write(static_cast<uint8_t>(bits));
                return true;
            case 2:
                writer_.write(static_cast<uint16_t>(bits));
                return true;
            case 4:
                writer_.write(static_cast<uint32_t>(bits));
                return true;
            default:
                writer_.write(bits);
                return true;
        }
    }

    ByteWriter& writer_;
    bool xcdr2_;
    NestingStack<size_t> headers_; // where what follows the header of each open value starts; 0: no header
};

/// Writes the key members of the structures that a payload consists of.
class KeyWalk {
  public:
    KeyWalk(CdrWalker& walker, KeyWriter& writer, WalkBuffers& buffers)
        : walker_(walker), writer_(writer), buffers_(buffers) {}

    bool write(ByteReader& reader, const Type& type, unsigned depth = 0) {
        if (depth > kMaxValueDepth)
            return false;
        if (!type.is_aggregate())
            return walker_.walk(reader, type, &writer_);
        ListEnd<KeyMember> members(buffers_.key_members);
        append_key_members(type, depth == 0, members.list());
        size_t last = 0;
        for (size_t i = 1; i < members.size(); ++i) {
            if (members[i].place > members[last].place)
                last = i;
        }
        // Nothing behind the last of them is looked at: most keys stand at the start of their samples, and a
        // sample that cannot be decoded to its end belongs to its instance all the same. A key member that is
        // not there is missed below.
        CdrWalker::Located located(buffers_.located);
        walker_.locate_members(reader, type, members.size() == 0 ? nullptr : members[last].member, located);
        for (size_t i = 0, count = members.size(); i < count; ++i) {
            if (!write_member(*members[i].member, located, depth))
                return false;
        }
        return true;
    }

  private:
    bool write_member(const Member& member, CdrWalker::Located& located, unsigned depth) {
        size_t index = 0;
        while (index < located.size() && located[index].member != &member)
            ++index;
        const Type* type = resolve_alias(member.type);
        if (index == located.size() || !located[index].present || type == nullptr || !walker_.enter(member))
            return false;
        ByteReader body = located[index].body;
        const bool written = write(body, *type, depth + 1);
        walker_.leave();
        return written;
    }

    CdrWalker& walker_;
    KeyWriter& writer_;
    WalkBuffers& buffers_;
};

/// Where the largest value of a type ends when it starts at `offset`; nothing beyond kMaxPlainKey.
class LargestKey {
  public:
    explicit LargestKey(size_t max_alignment) : max_alignment_(max_alignment) {}

    std::optional<size_t> end_of(const Type& type, bool outermost, size_t offset) {
        // Types may hold the same empty one along endlessly many paths, all from the same offset.
        const std::tuple place(&type, outermost, offset);
        if (const auto known = ends_.find(place); known != ends_.end())
            return known->second;
        if (++depth_ > kMaxValueDepth)
            return std::nullopt;
        const std::optional<size_t> end = end_of_kind(type, outermost, offset);
        --depth_;
        if (!end || *end > kMaxPlainKey)
            return std::nullopt; // the whole key is then too large, and no further question follows
        ends_.emplace(place, *end);
        return end;
    }

  private:
    std::optional<size_t> end_of_kind(const Type& type, bool outermost, size_t offset) {
        const bool has_bound =
            type.kind == DDS_TK_STRING || type.kind == DDS_TK_WSTRING || type.kind == DDS_TK_SEQUENCE;
        if (has_bound && type.bound == 0)
            return std::nullopt;
        switch (type.kind) {
            case DDS_TK_STRUCT:
            case DDS_TK_VALUE:
                for (const KeyMember& entry : key_members(type, outermost)) {
                    const std::optional<size_t> end = end_of_part(entry.member->type, offset);
                    if (!end)
                        return std::nullopt;
                    offset = *end;
                }
                return offset;
            case DDS_TK_ARRAY: {
                uint64_t count = 1;
                for (uint32_t dimension : type.dimensions)
                    count = std::min<uint64_t>(count * dimension, kMaxPlainKey + 1);
                return end_of_elements(type, offset, count);
            }
            case DDS_TK_STRING:
                return number(offset, 4) + type.bound + 1;
            case DDS_TK_WSTRING:
                return number(offset, 4) + 2 * size_t{type.bound};
            case DDS_TK_SEQUENCE:
                return end_of_elements(type, number(offset, 4),
                                       std::min<uint64_t>(type.bound, kMaxPlainKey + 1));
            case DDS_TK_UNION:
            case DDS_TK_MAP:
                return std::nullopt; // all peers hash such keys
            case DDS_TK_LONGDOUBLE:
                return number(offset, 8) + 8;
            default:
                return number(offset, number_size(type));
        }
    }

    std::optional<size_t> end_of_part(const Type* type, size_t offset) {
        type = resolve_alias(type);
        return type == nullptr ? std::nullopt : end_of(*type, false, offset);
    }
    std::optional<size_t> end_of_elements(const Type& type, size_t offset, uint64_t count) {
        std::optional<size_t> end = offset;
        for (uint64_t i = 0; i < count && end; ++i)
            end = end_of_part(type.content, *end);
        return end;
    }
    size_t number(size_t offset, size_t size) const {
        return offset + rtps::padding_to(offset, std::min(size, max_alignment_)) + size;
    }

    size_t max_alignment_;
    unsigned depth_ = 0;
    std::map<std::tuple<const Type*, bool, size_t>, size_t> ends_; // known so far
};

/// Whether plain XCDR1 and XCDR2 write all values of a type alike: they differ in the alignment of 8-octet
/// values and in the headers of collections.
bool is_written_alike(const Type* type, std::set<const Type*>& seen) {
    type = resolve_alias(type);
    if (type == nullptr || !seen.insert(type).second)
        return type != nullptr;
    if (number_size(*type) >= 8 || type->kind == DDS_TK_MAP)
        return false;
    if (type->kind == DDS_TK_SEQUENCE || type->kind == DDS_TK_ARRAY)
        return is_primitive(type->content) && is_written_alike(type->content, seen);
    if (type->kind == DDS_TK_UNION && !is_written_alike(type->discriminator, seen))
        return false;
    if (!type->is_aggregate() && type->kind != DDS_TK_UNION)
        return true;
    return visit_members(*type,
                         [&seen](const Member& member) { return is_written_alike(member.type, seen); });
}

rtps::KeyHash padded(const rtps::ByteBuffer& key) {
    rtps::KeyHash hash{};
    std::copy_n(key.begin(), std::min(key.size(), hash.size()), hash.begin());
    return hash;
}

} // namespace

KeyHasher::KeyHasher(const SampleReader& reader)
    : reader_(reader), fixed_(reader.type()), keyed_(has_key_members(reader.type())) {
    const auto xcdr1 = LargestKey(rtps::kXcdr1MaxAlignment).end_of(reader.type(), true, 0);
    const auto xcdr2 = LargestKey(rtps::kXcdr2MaxAlignment).end_of(reader.type(), true, 0);
    digest_xcdr1_ = !xcdr1;
    digest_xcdr2_ = !xcdr2;
    forms_agree_ = digest_xcdr1_ == digest_xcdr2_;
    std::set<const Type*> seen;
    for (const KeyMember& entry : key_members(reader.type(), true))
        forms_agree_ = forms_agree_ && is_written_alike(entry.member->type, seen);
}

bool KeyHasher::serialize(rtps::ByteView payload, bool key_only, bool xcdr2, const SampleSource& source,
                          WalkBuffers& buffers, rtps::ByteBuffer& key, std::string& failure) const {
    if (!keyed_) {
        failure = "the type has no key";
        return false;
    }
    key.clear();
    ByteWriter writer(key, rtps::Endianness::big,
                      xcdr2 ? rtps::kXcdr2MaxAlignment : rtps::kXcdr1MaxAlignment);
    std::optional<SampleReader::Start> start = reader_.start(payload, key_only, source, buffers, failure);
    if (!start)
        return false;
    start->walker.set_only_keys_told();
    KeyWriter key_writer(writer, xcdr2);
    if (KeyWalk(start->walker, key_writer, buffers).write(start->reader, reader_.type()))
        return true;
    failure = start->walker.failure().empty() ? "a key member is missing" : start->walker.failure();
    return false;
}

bool KeyHasher::compute(rtps::ByteView payload, bool key_only, rtps::KeyHash& hash, std::string& failure,
                        const SampleSource& source) const {
    const bool aligns_as_others = maker_of(source) != Maker::open_dds_1;
    if (!key_only && aligns_as_others && fixed_.read(payload, hash))
        return true;
    const Borrowed<Buffers> buffers(buffers_);
    if (!serialize(payload, key_only, false, source, buffers->walk, buffers->key, failure))
        return false;
    hash = digest_xcdr1_ ? md5(buffers->key) : padded(buffers->key);
    return true;
}

bool KeyHasher::compute_all(rtps::ByteView payload, bool key_only, std::vector<rtps::KeyHash>& hashes,
                            std::string& failure, const SampleSource& source) const {
    const auto add = [&hashes](const rtps::KeyHash& hash) {
        if (std::find(hashes.begin(), hashes.end(), hash) == hashes.end())
            hashes.push_back(hash);
    };
    const Borrowed<Buffers> buffers(buffers_);
    const rtps::ByteBuffer& xcdr2 = buffers->key;
    const rtps::ByteBuffer& xcdr1 = forms_agree_ ? xcdr2 : buffers->other_key;
    if (!serialize(payload, key_only, true, source, buffers->walk, buffers->key, failure) ||
        (!forms_agree_ &&
         !serialize(payload, key_only, false, source, buffers->walk, buffers->other_key, failure)))
        return false;
    add(digest_xcdr2_ ? md5(xcdr2) : padded(xcdr2));
    add(digest_xcdr1_ ? md5(xcdr1) : padded(xcdr1));
    if (xcdr2.size() <= kMaxPlainKey)
        add(padded(xcdr2));
    if (xcdr1.size() <= kMaxPlainKey)
        add(padded(xcdr1));
    return true;
}

} // namespace meridian::types
