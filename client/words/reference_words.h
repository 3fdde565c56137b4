#pragma once
// Words about the program itself and the methods: `schema`, `completion`, and the hidden `man-tables`.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_reference_words(CLI::App& app, Context& context);

}  // namespace brumectl
