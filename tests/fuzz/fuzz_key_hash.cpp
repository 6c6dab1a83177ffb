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
        rtps::KeyHash hash;
        rtps::KeyHash again;
        failure.clear();
        const bool have = hasher.compute(payload, key_only, hash, failure);
        require(have == failure.empty());
        require(hasher.compute(payload, key_only, again, failure) == have);
        require(!have || (again == hash && have_all && holds(all, hash)));
        if (hasher.forms_agree() && have)
            require(all.front() == hash);
    }
    return 0;
}
