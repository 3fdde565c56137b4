// Of the engine that does nothing, the one function that bench/compare asks: a long text, as large as the
// first argument.
#include <brumecpd/engine_api.h>

#include "long_text.h"

void corvo_api_cp_coffee(const std::string&, const std::string&, const std::vector<uint32_t>& args,
                         std::string& out, std::string&) {
    static std::string text;
    if (!args.empty() && text.size() != args[0]) text = long_text(args[0]);
    out = text;
}
