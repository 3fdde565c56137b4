#include "client/live/top.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

#include "client/context.h"
#include "client/failure.h"
#include "client/live/screen.h"
#include "client/live/top_view.h"
#include "client/text/option_checks.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

struct TopOptions {
    double delay_sec = 1;
    bool batch = false;
    std::string pane = panes().front().name;
    uint64_t count = 0;  ///< number of samples; 0 means no limit
};

/** On a screen, a busy daemon must not delay key presses for long. */
constexpr int SCREEN_BUDGET_MS = 2000;

/** The last two samples, across restarts of the daemon. */
class Watch {
 public:
    Watch(Context& context, int budget_ms) : m_context(context), m_budget_ms(budget_ms) {}

    /** Returns null on success, else the failure; earlier samples are then kept. */
    const Failure* update(const ListWish& wish) {
        m_failure.reset();
        try {
            if (!m_daemon) m_daemon = m_context.new_daemon();
            LiveSample sample = LiveSample::take(*m_daemon, m_budget_ms, wish);
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

const Pane& pane_of(const TopOptions& options) {
    return *std::find_if(panes().begin(), panes().end(),
                         [&](const Pane& pane) { return pane.name == options.pane; });
}

ListWish wish_of(const Pane& pane, const ListOrder& order) {
    return {pane.list, pane.list == &flow_lists::FLOWS ? order.engines : nullptr};
}

constexpr double DELAYS_SEC[] = {0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1800, 3600};

double longer(double delay_sec) {
    const auto* next = std::upper_bound(std::begin(DELAYS_SEC), std::end(DELAYS_SEC), delay_sec);
    return next == std::end(DELAYS_SEC) ? delay_sec : *next;
}

double shorter(double delay_sec) {
    const auto* next = std::lower_bound(std::begin(DELAYS_SEC), std::end(DELAYS_SEC), delay_sec);
    return next == std::begin(DELAYS_SEC) ? delay_sec : *(next - 1);
}

/** Shows the samples on an alternate screen, and handles the keys that change the view. */
class ScreenRun {
 public:
    ScreenRun(Context& context, const TopOptions& options)
        : m_context(context),
          m_options(options),
          m_watch(context, std::min(context.timeout_ms(), SCREEN_BUDGET_MS)),
          m_screen(std::make_unique<Screen>(context.out())),
          m_pane(&pane_of(options)) {}

    void run() {
        for (uint64_t round = 1;; ++round) {
            const Failure* failure = m_watch.update(wish_of(*m_pane, *m_list_order));
            if (round == m_options.count) return leave_picture(failure);
            if (!show()) return;
        }
    }

 private:
    /** Waits until the next sample is due. Returns false if the user wants to quit. */
    bool show() {
        const uint64_t looked_ms = corvo::monotonic_ms();
        for (;;) {
            m_screen->draw(lines());
            const uint64_t now = corvo::monotonic_ms();
            const uint64_t next = looked_ms + static_cast<uint64_t>(delay_ms(m_options));
            const int key = m_screen->wait_key(now < next ? static_cast<int>(next - now) : 0);
            if (key == 'q' || key == 'Q' || key < 0) return false;
            if (key == ' ' || corvo::monotonic_ms() >= next) return true;
            if (key != 0 && press(key)) return true;
        }
    }

    /** Returns whether what is now to be shown has to be asked for. */
    bool press(int key) {
        const auto asked = [this] { return std::pair(m_pane, m_list_order); };
        const auto before = asked();
        if (key == Screen::SUSPEND_KEY) m_screen->suspend();
        m_help = !m_help && (key == '?' || key == 'h');
        if (key == '+') m_options.delay_sec = longer(m_options.delay_sec);
        if (key == '-') m_options.delay_sec = shorter(m_options.delay_sec);
        for (const TrafficOrder& order : traffic_orders())
            if (key == order.key && m_pane->list == nullptr) m_order = &order;
        for (const ListOrder& order : list_orders())
            if (key == order.key && m_pane->list == &flow_lists::FLOWS) m_list_order = &order;
        for (const Pane& pane : panes())
            if (key == pane.key) m_pane = &pane;
        if (key == '\t') m_pane = m_pane == &panes().back() ? &panes().front() : m_pane + 1;
        return m_pane->list != nullptr && asked() != before;
    }

    std::vector<std::string> lines() const {
        TopFrame frame = m_watch.frame(m_options);
        frame.width = static_cast<size_t>(std::max(20, m_screen->width()));
        frame.height = static_cast<size_t>(m_screen->height());
        frame.order = m_order;
        frame.pane = m_pane;
        frame.list_order = m_list_order;
        frame.help = m_help;
        return top_lines(frame, m_context.out());
    }

    /** Leaves the last view in place of the screen, up to its number of lines. */
    void leave_picture(const Failure* failure) {
        m_help = false;
        std::vector<std::string> picture = lines();
        picture.pop_back();  // the line of keys
        while (!picture.empty() && picture.back().empty())
            picture.pop_back();
        m_screen.reset();
        for (const std::string& line : picture)
            m_context.out().print(line + "\n");
        if (failure != nullptr) throw Failure(*failure);
    }

    Context& m_context;
    TopOptions m_options;
    Watch m_watch;
    std::unique_ptr<Screen> m_screen;
    const Pane* m_pane;
    const ListOrder* m_list_order = &list_orders().front();
    const TrafficOrder* m_order = &traffic_orders().front();
    bool m_help = false;
};

void run_batch(Context& context, const TopOptions& options) {
    Watch watch(context, context.timeout_ms());
    const Terminal& out = context.out();
    const Pane& pane = pane_of(options);
    for (uint64_t round = 1;; ++round) {
        const Failure* failure = watch.update(wish_of(pane, list_orders().front()));
        bool last = round == options.count;
        if (failure != nullptr && last) throw Failure(*failure);
        if (failure != nullptr) {
            context.complain(failure->what());
        } else if (context.json()) {
            context.print_json(watch.frame(options).now->json());
        } else {
            TopFrame frame = watch.frame(options);
            frame.pane = &pane;
            frame.width = static_cast<size_t>(std::max(80, out.width()));
            for (const std::string& line : top_lines(frame, out))
                out.print(line + "\n");
            if (!last) out.print("\n");
        }
        out.flush();
        if (last) return;
        const uint64_t next = corvo::monotonic_ms() + static_cast<uint64_t>(delay_ms(options));
        for (uint64_t now = corvo::monotonic_ms(); now < next; now = corvo::monotonic_ms())
            out.wait(static_cast<int>(next - now));
    }
}

}  // namespace

void add_top(CLI::App& app, Context& context) {
    auto options = std::make_shared<TopOptions>();
    CLI::App* word = app.add_subcommand("top", "Watch the daemon and its traffic");
    word->add_option("-d,--delay", options->delay_sec, "Seconds between updates")
        ->type_name("SECONDS")
        ->check(seconds_between(0.1, 3600))
        ->capture_default_str();
    std::vector<std::string> names;
    for (const Pane& pane : panes())
        names.emplace_back(pane.name);
    restrict_to(*word->add_option("--pane", options->pane, "Pane to start with")->capture_default_str(),
                names);
    word->add_flag("-b,--batch", options->batch, "Print updates as plain text, one below the other");
    word->add_option("-n,--count", options->count, "Stop after this many updates (default: never)")
        ->type_name("NUMBER")
        ->transform(number_between(1, UINT32_MAX));
    word->footer(
        "Press ? for the keys. The panes flows and hosts need an engine with the methods flows.list and\n"
        "flows.hosts.");
    word->callback([&context, options] {
        if (options->batch || context.json()) return run_batch(context, *options);
        ScreenRun(context, *options).run();
    });
}

}  // namespace brumectl
