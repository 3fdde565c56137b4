// Of the engine that does nothing, the one function that bench/compare asks: a long text, as large as the
// first argument.
#include <brumecpd/engine_api.h>

void corvo_api_cp_coffee(const std::string&, const std::string&, const std::vector<uint32_t>& args,
                         std::string& out, std::string&) {
    out.assign(args.empty() ? 0 : args[0], 'x');
}
