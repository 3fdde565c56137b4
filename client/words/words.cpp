#include "client/words/words.h"

#include "client/check/check.h"
#include "client/classify/classify.h"
#include "client/context.h"
#include "client/evidence/evidence.h"
#include "client/flows/flows.h"
#include "client/lifecycle/lifecycle.h"
#include "client/live/events.h"
#include "client/live/metrics.h"
#include "client/live/top.h"
#include "client/words/call.h"
#include "client/words/help_words.h"
#include "client/words/log_word.h"
#include "client/words/method_words.h"
#include "client/words/reference_words.h"
#include "client/words/shell_word.h"

namespace brumectl {

void add_words(CLI::App& app, Context& context) {
    add_call(app, context);
    add_check(app, context);
    add_run(app, context);
    add_wait(app, context);
    add_reload(app, context);
    add_log(app, context);
    add_shell(app, context);
    add_reference_words(app, context);
    add_method_words(app, context);
    add_classify(app, context);
    add_evidence(app, context);
    add_live_events(app, context);
    add_flows(app, context);
    add_metrics(app, context);
    add_top(app, context);
    add_help_words(app, context);
    if (context.options().in_shell) add_leave_words(app);
}

}  // namespace brumectl
