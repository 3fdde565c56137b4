#pragma once
// What supervision and reports need of the server that they watch. The server hands it to its watchdog, so
// nothing in this folder includes the server.

namespace corvo::server {

/** The texts live as long as the engine's state doesn't change. */
struct EngineFacts {
    static constexpr int ACTIVATED = 2;

    const char* mode;
    const char* path;  ///< of the library; empty while unloaded
    int state;         ///< 0 not loaded, 1 deactivated, 2 activated, 3 attached
};

/** Outlives every handler. Whether there is a server at the moment may change from call to call. */
class WatchedServer {
 public:
    // Signal-safe.
    /** Ends the server's loop with the cause that belongs to `signum`, SIGINT or SIGTERM. */
    virtual void stop(int signum) const = 0;
    /** Whole seconds since the start; 0 before the server's loop exists. */
    virtual int uptime() const = 0;
    /** Null without a server. */
    virtual const char* log_file() const = 0;
    /** False and `facts` untouched without an engine object. */
    virtual bool engine_facts(EngineFacts& facts) const = 0;

    // Normal context.
    /** From here on SigHandler learns the version of the engine whenever that is activated. */
    virtual void follow_engine() const = 0;
    virtual void unfollow_engine() const = 0;
    /** Where the server looks for a configuration when none was named. */
    virtual const char* default_config_file() const = 0;

 protected:
    ~WatchedServer() = default;  // nobody owns it by this type
};

}  // namespace corvo::server
