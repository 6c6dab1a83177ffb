// A type, then a sample of it: the printers and the key hash must cope with any bytes, and what the JSON
// printer writes must be JSON.

#include <rapidjson/reader.h>

#include <cstdlib>

#include "random_type.h"
#include "types/data/json_printer.h"
#include "types/data/key_hasher.h"
#include "types/data/plain_printer.h"

using namespace meridian;
using namespace meridian::types;

namespace {

class Walk {
  public:
    Walk(const SampleReader& reader, rtps::ByteView payload) : reader_(reader), payload_(payload) {}
    bool operator()(ValueSink& sink) const {
        std::string failure;
        const bool done = reader_.walk(payload_, &sink, failure);
        if (done != failure.empty())
            std::abort();
        return done;
    }

  private:
    const SampleReader& reader_;
    rtps::ByteView payload_;
};

bool is_json(const std::string& text) {
    rapidjson::Reader reader;
    rapidjson::BaseReaderHandler<> handler;
    rapidjson::StringStream stream(text.c_str());
    return !reader
                .Parse<rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag>(stream,
                                                                                               handler)
                .IsError();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    TypeGraph* graph = TypeGraph::create();
    const SampleReader reader(TypeRef::adopt(fuzz::TypeMaker(input, *graph).make()));
    const rtps::ByteView payload(input.data(), input.size());
    const Walk walk(reader, payload);
    PrintBuffers text;
    PlainPrinter printer(text, 0);
    walk(printer);
    PrintBuffers json;
    if (print_json(walk, JsonStyle(), json) && !is_json(json.text))
        std::abort();
    const KeyHasher hasher(reader);
    std::vector<rtps::KeyHash> hashes;
    std::string failure;
    hasher.compute_all(payload, false, hashes, failure);
    hasher.compute_all(payload, true, hashes, failure);
    return 0;
}
