#include "client/words.h"

#include "client/call.h"

namespace brumectl {

void add_words(CLI::App& app, Context& context) {
    add_call(app, context);
}

}  // namespace brumectl
