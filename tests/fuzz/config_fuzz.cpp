// The configuration file. Up to the first NUL it is the file, behind that the reply that each of its requests
// gets.

#include <cassert>
#include <fstream>

#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "infra/corvo_json.h"
#include "server/corvo_server_config.h"
#include "utils/exception.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile memory;
    fuzz::Input input(data, size);
    memory.write(input.until('\0'));
    const std::string reply = input.rest();
    std::fstream file(memory.path(), std::ios::in | std::ios::binary);
    corvo::ReadConfig config("", [&](const std::string& request, std::string& response) {
        Json::Value parsed;
        [[maybe_unused]] const bool is_json = corvo::json::parse(request, parsed);
        assert(is_json);
        response = reply;
    });
    try {
        config.read_and_digest_config_file(file);
    } catch (const corvo::Exception&) {
    }
    return 0;
}
