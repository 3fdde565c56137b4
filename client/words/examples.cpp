#include "client/words/examples.h"

namespace brumectl {

namespace {

constexpr Example EXAMPLES[] = {
    {"", "status", "Show what the daemon is doing"},
    {"", "help classify", "Explain a command"},

    {"activate", "activate", "Start the data path for 16384 flows"},
    {"activate", "activate --max_flows 100000", "Start it for more"},
    {"attach", "attach eth0", "Watch the packets of eth0"},
    {"attach", "attach default", "Watch the interface that leads to the Internet"},
    {"call", "call activate resources.max_flows=16384", "Call a method with one parameter"},
    {"call", "call log '{\"type\": \"log\", \"maxlines\": 5}'", "Call one with its parameters as JSON"},
    {"check", "check /etc/brumecpd/startup.json", "Look for mistakes in a configuration"},
    {"check", "check --strict -", "Check standard input; warnings count too"},
    {"classify", "classify --flows --csv monday.csv monday.pcap",
     "List who talked to whom, and save it for a spreadsheet"},
    {"classify", "classify --filter 'port 53' --packets dns.pcapng", "Show each packet from or to port 53"},
    {"cmds", "cmds", "List the methods, including the engine's own"},
    {"cmds", "cmds --json", "List them as JSON"},
    {"coffee", "coffee dp.ft.count", "Ask for the number of flows"},
    {"coffee", "coffee help", "Ask the engine what functions it has"},
    {"collect", "collect ls", "List the collectors"},
    {"collect", "collect set_interval flows --interval 5000", "Sample \"flows\" every five seconds"},
    {"completion", "completion bash", "Print the script for bash"},
    {"completion", "completion fish", "Print the script for fish"},
    {"deactivate", "deactivate", "Stop the data path"},
    {"deactivate", "--timeout 60 deactivate", "Stop it, waiting up to a minute for the reply"},
    {"detach", "detach eth0", "Stop watching eth0"},
    {"detach", "detach default", "Stop watching the interface that leads to the Internet"},
    {"echo", "echo 'maintenance begins'", "Leave a mark in the log"},
    {"echo", "echo -- --done--", "The same for a text that begins with a dash"},
    {"events", "events", "Show the events so far"},
    {"events", "events -f --sev warn", "Show warnings and errors as they arrive"},
    {"events gc", "events gc", "Remove subscriptions of programs that have ended"},
    {"events gc", "events gc --json", "Remove them, and list them as JSON"},
    {"evidence", "evidence ls", "List the reports of crashes and stalls"},
    {"evidence", "evidence show", "Show the latest"},
    {"evidence ls", "evidence ls", "List what there is"},
    {"evidence ls", "evidence ls --dir ./cvevents", "List the reports in a directory"},
    {"evidence prune", "evidence prune --keep 5", "Remove all but the latest five"},
    {"evidence prune", "evidence prune --max-size 2G --dir ./cvevents",
     "Remove the oldest of a directory until 2 GiB are left"},
    {"evidence show", "evidence show", "Show the latest"},
    {"evidence show", "evidence show --json", "Show it as JSON"},
    {"flows", "flows --protocol TLS --host example.org", "List who talks TLS to example.org and below it"},
    {"flows", "flows -f -n 10 --min-bytes 1M", "Follow the ten largest flows above 1 MiB"},
    {"health", "health show --verbose", "Show the engine's health in detail"},
    {"health", "health configure '{\"drops\": {\"warn\": 10, \"bad\": 500}}'",
     "Move its limits for lost frames"},
    {"help", "help collect", "Explain a command"},
    {"help", "help evidence show", "Explain a command's own command"},
    {"hogs", "hogs", "Show where the daemon has stalled"},
    {"hogs", "hogs --json", "Show it as JSON"},
    {"load", "load", "Load the engine from ../lib, relative to the daemon's directory"},
    {"load", "load --path /usr/lib/brumecpd/lib", "Load it from another directory"},
    {"log", "log -f -n 20", "Show the last 20 lines, and new ones as they arrive"},
    {"log", "log --level debug --comp rpc", "Log everything about requests"},
    {"metrics", "metrics", "Print the metrics once"},
    {"metrics", "metrics --listen localhost:9464", "Serve them at http://localhost:9464/metrics"},
    {"mt", "mt", "Ask the memory tracer"},
    {"mt", "mt --depth 3 --threshold 4096", "Ask it with other values for its call graph"},
    {"notifications", "notifications alerts", "Show the alerts"},
    {"notifications", "notifications socket ls", "List the subscribed sockets"},
    {"ping", "ping", "See whether the daemon answers"},
    {"ping", "-s 192.0.2.1:4040 --timeout 1 ping",
     "See whether another machine's daemon answers within a second"},
    {"push_pcap", "push_pcap sample.pcap --reset", "Count the protocols in a capture"},
    {"push_pcap", "push_pcap sample.pcap --extended", "Show each packet"},
    {"reload", "reload", "Restart the engine"},
    {"reload", "reload /usr/lib/brumecpd/lib", "Replace it with another one"},
    {"run", "run /etc/brumecpd/startup.json", "Send the requests of a configuration"},
    {"run", "run --keep-going requests.json", "Go on if one fails"},
    {"schema", "schema", "Print the description of all methods"},
    {"schema", "schema push_pcap", "Print that of one method"},
    {"shell", "shell", "Type commands"},
    {"shell", "-s 192.0.2.1:4040 shell", "The same for a daemon on another machine"},
    {"shutdown", "shutdown", "Stop the daemon"},
    {"shutdown", "-s ./test.sock shutdown", "Stop another one"},
    {"status", "status", "Show server, engine and machine"},
    {"status", "status --json", "Show them as JSON"},
    {"top", "top", "Watch the daemon and its traffic"},
    {"top", "top -b -n 10 -d 5", "Print ten updates, five seconds apart"},
    {"unload", "unload", "Close the engine library"},
    {"unload", "--timeout 60 unload", "Close it, waiting up to a minute for the reply"},
    {"version", "version", "Print the client's version"},
    {"version", "version --json", "Print it as JSON"},
    {"wait", "wait", "Wait until the daemon answers"},
    {"wait", "wait --for activated --timeout 60", "Wait up to a minute until the engine is activated"},
};

}  // namespace

std::vector<Example> examples_of(const std::string& word) {
    std::vector<Example> found;
    for (const Example& example : EXAMPLES)
        if (word == example.word) found.push_back(example);
    return found;
}

}  // namespace brumectl
