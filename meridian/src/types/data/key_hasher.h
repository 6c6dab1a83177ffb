#pragma once

// Key hashes: the 16 octets by which RTPS tells instances (OMG DDSI-RTPS 2.5, 9.6.4.8;
// DDS-XTypes 1.3, 7.6.8).
//
// They are made of the key members alone, in order of their member ids, big-endian and plain, whatever the
// encoding of the sample: as they stand where no value of the type takes more than 16 octets, else their MD5.
// XCDR1 and XCDR2 align 8-octet members differently, so there are two forms, and peers use either: an
// instance can be known by both.

#include <string>
#include <vector>

#include "types/data/fixed_key.h"
#include "types/data/sample_reader.h"

namespace meridian::types {

class KeyHasher {
  public:
    /// `reader` must outlive the hasher. Its operations may be called on any thread; steady traffic of equal
    /// size allocates nothing.
    explicit KeyHasher(const SampleReader& reader);

    /// Whether the type has key members; without them all instances are one, and there is no hash.
    bool is_keyed() const { return keyed_; }
    /// Whether the two forms of the hash are known to be the same for every sample of this type.
    bool forms_agree() const { return forms_agree_; }
    /// Whether the hash of the XCDR1 form is an MD5.
    bool is_digest() const { return digest_xcdr1_; }

    /// The hash, in the XCDR1 form, of a serialized sample or, with `key_only`, of a payload that holds
    /// nothing but the key, as disposes carry it. False, with the reason in `failure`, when the payload
    /// cannot be decoded or the type has no key.
    bool compute(rtps::ByteView payload, bool key_only, rtps::KeyHash& hash, std::string& failure,
                 const SampleSource& source = {}) const;
    /// All hashes by which a peer may know the instance, without duplicates: those of both forms, XCDR2
    /// first, and short keys as they stand although longer ones of the type would be digested (dynamic types
    /// of Fast DDS). A dispose that carries only a hash means the instance that has it among these.
    bool compute_all(rtps::ByteView payload, bool key_only, std::vector<rtps::KeyHash>& hashes,
                     std::string& failure, const SampleSource& source = {}) const;

  private:
    struct Buffers {
        WalkBuffers walk;
        rtps::ByteBuffer key;       // in one form
        rtps::ByteBuffer other_key; // in the other
    };
    /// Writes the key in that form over `key`.
    bool serialize(rtps::ByteView payload, bool key_only, bool xcdr2, const SampleSource& source,
                   WalkBuffers& buffers, rtps::ByteBuffer& key, std::string& failure) const;

    const SampleReader& reader_;
    FixedKey fixed_;
    bool keyed_;
    bool forms_agree_ = false;
    bool digest_xcdr1_ = true;
    bool digest_xcdr2_ = true;
    Spares<Buffers> buffers_;
};

} // namespace meridian::types
