// A type, then an opaque sample of it: the raw printer must cope with any bytes, its text is bounded by them,
// and holds nothing that a terminal obeys.

#include <cstdlib>
#include <string>

#include "agent/QuixAgentOutput.h"
#include "quixspy/quixSpyRawPrinter.h"
#include "random_type.h"
#include "unit/quixspy/raw_sample.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace meridian::types;
    fuzz::Input input(data, size);
    TypeGraph* graph = TypeGraph::create();
    const TypeRef type = TypeRef::adopt(fuzz::TypeMaker(input, *graph).make());
    test::RawSample sample;
    if (input.size() < 4 || !sample.set(test::Bytes(input.data(), input.data() + input.size())))
        return 0;
    std::string text;
    QuixSpyRawPrinter(text).print_sample(sample.record, &*type, 0);
    for (const char character : text) {
        if ((static_cast<unsigned char>(character) < 0x20 && character != '\n') || character == 0x7f)
            std::abort();
    }
    // Each value has a line of its own, with blanks in front of it and a name of the type.
    constexpr uint64_t kLongestLine = 3 * QUIXSPY_RAW_PRINTER_MAX_DEPTH + 200;
    if (text.size() > kLongestLine * (QUIXSPY_RAW_PRINTER_VALUES_PER_SAMPLE +
                                      QUIXSPY_RAW_PRINTER_VALUES_PER_BYTE * input.size()))
        std::abort();
    return 0;
}
