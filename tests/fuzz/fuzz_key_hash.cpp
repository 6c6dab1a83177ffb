// A type, then a sample or a key of it: hashes are the same each time, in both forms where those agree, and
// those of one instance are what each of them is alone.

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "random_type.h"
#include "types/data/key_hasher.h"

using namespace meridian;
using namespace meridian::types;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

bool holds(const std::vector<rtps::KeyHash>& hashes, const rtps::KeyHash& hash) {
    return std::find(hashes.begin(), hashes.end(), hash) != hashes.end();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    TypeGraph* graph = TypeGraph::create();
    const SampleReader reader(TypeRef::adopt(fuzz::TypeMaker(input, *graph).make()));
    const KeyHasher hasher(reader);
    const rtps::ByteView payload(input.data(), input.size());
    for (const bool key_only : {false, true}) {
        std::vector<rtps::KeyHash> all;
        std::string failure;
        const bool have_all = hasher.compute_all(payload, key_only, all, failure);
        require(have_all != all.empty() && have_all == failure.empty());
        rtps::KeyHash hashes[2];
        bool have[2];
        for (const auto form : {KeyHasher::Form::xcdr1, KeyHasher::Form::xcdr2}) {
            rtps::KeyHash again;
            const auto at = static_cast<size_t>(form);
            failure.clear();
            have[at] = hasher.compute(payload, key_only, form, hashes[at], failure);
            require(have[at] == failure.empty());
            require(hasher.compute(payload, key_only, form, again, failure) == have[at]);
            require(!have[at] || again == hashes[at]);
            require(!have[at] || (have_all && holds(all, hashes[at])));
        }
        if (hasher.forms_agree() && have[0] && have[1])
            require(hashes[0] == hashes[1]);
    }
    return 0;
}
