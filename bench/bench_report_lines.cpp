// A report line per sample: formatted, written and flushed, against a constant line that is written and
// flushed.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "measure.h"
#include "quixspy/quixSpySampleLine.h"

namespace {

constexpr uint64_t kLines = 20000;
constexpr const char* kConstant =
    "12:25:30 Modified instance from 127.0.0.1       : topic=\"Square\" type=\"ShapeType\"\n";

[[noreturn]] void give_up(const char* what) {
    std::perror(what);
    std::exit(1);
}

/// A stream that is emptied before each piece of work.
class Stream {
  public:
    explicit Stream(const char* path) : file_(std::fopen(path, "w")) {
        if (file_ == nullptr)
            give_up(path);
    }
    ~Stream() { std::fclose(file_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    FILE* file() { return file_; }
    void empty() {
        std::rewind(file_);
        // Not possible on a device, and not needed there.
        [[maybe_unused]] const int ignored = ftruncate(fileno(file_), 0);
    }

  private:
    FILE* file_;
};

DDS_SampleInfo sample_info() {
    DDS_SampleInfo info;
    info.source_timestamp = {1700000000, 5};
    info.view_state = DDS_NOT_NEW_VIEW_STATE;
    info.instance_state = DDS_ALIVE_INSTANCE_STATE;
    info.valid_data = true;
    info.publication_handle = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 2}, 16, true};
    info.instance_handle = info.publication_handle;
    std::memcpy(info.sample_identity.writer_guid.value, info.publication_handle.keyHash, 16);
    info.sample_identity.sequence_number = {0, 123456};
    return info;
}

void compare(const std::string& title, const char* path, int rounds) {
    Stream stream(path);
    FILE* const file = stream.file();
    const auto empty = [&stream] { stream.empty(); };
    const std::string topic = QUIXSpy_formatTopicField("Square", 50, "ShapeType", 50);
    QuixSpyEndpointInfo writer{};
    writer.guid = {0x01020304, 0x05060708, 0x090a0b0c, 0x0d0e0f02};
    std::strcpy(writer.ip, "127.0.0.1");
    std::string line;
    DDS_SampleInfo info = sample_info();

    const auto format = [&](const QuixSpySampleLineFields& fields, uint64_t number) {
        // A thousand samples a second, as a fast publisher writes them.
        info.source_timestamp.sec = 1700000000 + static_cast<DDS_Long>(number / 1000);
        info.sample_identity.sequence_number.low = static_cast<DDS_UnsignedLong>(number);
        line.clear();
        QUIXSpy_formatSampleLine(line, fields, topic, info, writer);
        line += '\n';
    };
    const auto write_lines = [&](const QuixSpySampleLineFields& fields) {
        for (uint64_t i = 0; i < kLines; ++i) {
            format(fields, i);
            std::fwrite(line.data(), 1, line.size(), file);
            std::fflush(file);
        }
    };

    QuixSpySampleLineFields few;
    few.isKeyed = true;
    QuixSpySampleLineFields all = few;
    all.showHandle = all.showSampleIdentity = all.showSampleFlags = true;

    ferret::bench::Comparison table(title);
    table.add(
        "constant line, flushed", kLines,
        [&] {
            for (uint64_t i = 0; i < kLines; ++i) {
                std::fprintf(file, "%s", kConstant);
                std::fflush(file);
            }
        },
        empty);
    table.add("only formatted", kLines, [&] {
        for (uint64_t i = 0; i < kLines; ++i) {
            format(few, i);
            ferret::bench::keep(line.data());
        }
    });
    table.add(
        "formatted, written, flushed", kLines, [&] { write_lines(few); }, empty);
    table.add(
        "the same with handle and identity", kLines, [&] { write_lines(all); }, empty);
    table.run(rounds);
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = ferret::bench::rounds_of(argc, argv);
    char path[] = "/tmp/ferret-bench-XXXXXX";
    const int descriptor = mkstemp(path);
    if (descriptor < 0)
        give_up(path);
    close(descriptor);
    compare("One report line to /dev/null", "/dev/null", rounds);
    compare("One report line to a file", path, rounds);
    unlink(path);
    return 0;
}
