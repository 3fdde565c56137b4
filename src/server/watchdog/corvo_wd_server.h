#pragma once
// What supervision and reports need from the server they watch. The server passes this to its watchdog, so
// nothing in this folder includes the server.

namespace corvo::server {

/** The texts are valid as long as the engine's state doesn't change. */
struct EngineFacts {
    static constexpr int ACTIVATED = 2;

    const char* mode;
    const char* path;  ///< of the library; empty while unloaded
    int state;         ///< 0 not loaded, 1 deactivated, 2 activated, 3 attached
};

/** Outlives every handler. A server may appear or disappear between two calls. */
class WatchedServer {
 public:
    // Signal-safe.
    /** Ends the server's loop with the cause for `signum`, SIGINT or SIGTERM. */
    virtual void stop(int signum) const = 0;
    /** Whole seconds since the start; 0 before the server's loop exists. */
    virtual int uptime() const = 0;
    /** Null if there is no server. */
    virtual const char* log_file() const = 0;
    /** Returns false, leaving `facts` untouched, if there is no engine object. */
    virtual bool engine_facts(EngineFacts& facts) const = 0;

    // Normal context.
    /** From here on, SigHandler gets the engine's version whenever it is activated. */
    virtual void follow_engine() const = 0;
    virtual void unfollow_engine() const = 0;
    /** Where the server looks for a configuration if none is named. */
    virtual const char* default_config_file() const = 0;

 protected:
    ~WatchedServer() = default;  // nobody owns it through this type
};

}  // namespace corvo::server
