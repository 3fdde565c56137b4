#include "client/live/top.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

#include "client/context.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "client/live/screen.h"
#include "client/live/top_view.h"
#include "client/option_checks.h"
#include "infra/corvo_json.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

struct TopOptions {
    double delay_sec = 1;
    bool batch = false;
    uint64_t count = 0;  ///< of samples; 0: no end
};

/** On a screen a busy daemon mustn't keep the keys waiting for long. */
constexpr int SCREEN_BUDGET_MS = 2000;

/** The last two samples, over all the daemon's comings and goings. */
class Watch {
 public:
    Watch(Context& context, int budget_ms) : m_context(context), m_budget_ms(budget_ms) {}

    /** Null if it worked, else why not; what was known before is kept then. */
    const Failure* update() {
        m_failure.reset();
        try {
            if (!m_daemon) m_daemon = m_context.new_daemon();
            LiveSample sample = LiveSample::take(*m_daemon, m_budget_ms);
            m_address = m_daemon->address().text;
            m_before = std::move(m_now);
            m_now = std::move(sample);
            return nullptr;
        } catch (const Usage&) {
            throw;
        } catch (const Failure& e) {
            m_daemon.reset();
            m_failure.emplace(e);
            return &*m_failure;
        }
    }

    TopFrame frame(const TopOptions& options) const {
        TopFrame frame;
        frame.now = m_now ? &*m_now : nullptr;
        frame.before = m_before ? &*m_before : nullptr;
        frame.trouble = m_failure ? m_failure->what() : "";
        frame.address = m_address;
        frame.delay_sec = options.delay_sec;
        return frame;
    }

 private:
    Context& m_context;
    const int m_budget_ms;
    std::unique_ptr<Daemon> m_daemon;
    std::string m_address;
    std::optional<LiveSample> m_before;
    std::optional<LiveSample> m_now;
    std::optional<Failure> m_failure;
};

int delay_ms(const TopOptions& options) {
    return static_cast<int>(options.delay_sec * 1000);
}

void run_screen(Context& context, const TopOptions& options) {
    Watch watch(context, std::min(context.timeout_ms(), SCREEN_BUDGET_MS));
    const Screen screen(context.out());
    for (uint64_t round = 0; options.count == 0 || round < options.count; ++round) {
        watch.update();
        uint64_t next = corvo::monotonic_ms() + static_cast<uint64_t>(delay_ms(options));
        for (;;) {
            TopFrame frame = watch.frame(options);
            frame.width = static_cast<size_t>(std::max(20, screen.width()));
            frame.height = static_cast<size_t>(screen.height());
            screen.draw(top_lines(frame, context.out()));
            uint64_t now = corvo::monotonic_ms();
            int key = screen.wait_key(now < next ? static_cast<int>(next - now) : 0);
            if (key == 'q' || key == 'Q' || key < 0) return;
            if (key == ' ' || corvo::monotonic_ms() >= next) break;
        }
    }
}

void run_batch(Context& context, const TopOptions& options) {
    Watch watch(context, context.timeout_ms());
    const Terminal& out = context.out();
    for (uint64_t round = 1;; ++round) {
        const Failure* failure = watch.update();
        bool last = round == options.count;
        if (failure != nullptr && last) throw Failure(*failure);
        if (failure != nullptr) {
            context.complain(failure->what());
        } else if (context.json()) {
            out.print(corvo::json::write_line(watch.frame(options).now->json()));
        } else {
            TopFrame frame = watch.frame(options);
            frame.width = static_cast<size_t>(std::max(80, out.width()));
            for (const std::string& line : top_lines(frame, out))
                out.print(line + "\n");
            if (!last) out.print("\n");
        }
        out.flush();
        if (last) return;
        std::vector<pollfd> reader{{fileno(out.stream()), 0, 0}};
        uint64_t next = corvo::monotonic_ms() + static_cast<uint64_t>(delay_ms(options));
        for (uint64_t now = corvo::monotonic_ms(); now < next; now = corvo::monotonic_ms())
            if (interrupt::wait(reader, static_cast<int>(next - now)) > 0)
                throw Failure("nobody reads the output any more");
    }
}

}  // namespace

void add_top(CLI::App& app, Context& context) {
    auto options = std::make_shared<TopOptions>();
    CLI::App* word = app.add_subcommand("top", "The daemon and its traffic as they are now, again and again");
    word->add_option("-d,--delay", options->delay_sec, "Seconds between two looks")
        ->type_name("SECONDS")
        ->check(seconds_between(0.1, 3600))
        ->capture_default_str();
    word->add_flag("-b,--batch", options->batch, "Plain text, one look below the other");
    word->add_option("-n,--count", options->count, "Looks until the end (default: no end)")
        ->type_name("NUMBER")
        ->check(number_between(1, UINT32_MAX));
    word->callback([&context, options] {
        if (options->batch || context.json()) return run_batch(context, *options);
        run_screen(context, *options);
    });
}

}  // namespace brumectl
