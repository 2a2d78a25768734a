// A result file of any bytes: it is read to its end, and sorting keeps every record
// that could be read, in order.

#include "fuzz.h"
#include "hostile/result_file_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fscanner;
    static const TemporaryDirectory directory(memoryDirectory());
    Input input(data, size);
    const unsigned key = 1 + input.byte() % 4, direction = 1 + input.byte() % 2;
    const bool caseSensitive = input.byte() % 2 == 0;
    const ResultFileVerdict verdict = checkResultFile(
        directory / "results", std::string(input.rest()), key, direction, caseSensitive);
    require(verdict.keptAll && verdict.inOrder);
    return 0;
}
