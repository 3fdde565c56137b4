#pragma once
// The panes of `top` that hold one of the engine's lists: flows or hosts.

#include <span>
#include <string>
#include <vector>

#include "client/live/live_sample.h"
#include "client/text/terminal.h"

namespace brumectl {

/** What `top` shows below its title. */
struct Pane {
    char key;
    const char* name;
    const flow_lists::List* list;  ///< null for the overview
};
/** In order; the first is the overview. */
std::span<const Pane> panes();

/** A key that sorts the flows, by the engine's own orders. */
struct ListOrder {
    char key;
    const char* name;
    const char* engines;
};
std::span<const ListOrder> list_orders();

/**
 * The lines of a list: titles and rows. `before` is the previous sample, for rates; may be null. At most
 * `height` lines; 0: as many as needed.
 */
std::vector<std::string> list_lines(const Pane& pane, const LiveSample& now, const LiveSample* before,
                                    const Terminal& terminal, size_t width, size_t height);

}  // namespace brumectl
