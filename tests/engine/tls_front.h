#pragma once
// A peer that speaks TLS: socat, which hands what it decrypts to a port of the test's own. For one
// connection.

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "support/temp_dir.h"

namespace test {

class TlsFront {
 public:
    /** Makes a certificate for "localhost" that nobody vouches for but itself, and listens. */
    explicit TlsFront(uint16_t clear_port);
    TlsFront(const TlsFront&) = delete;
    TlsFront& operator=(const TlsFront&) = delete;
    ~TlsFront();

    uint16_t port() const { return m_port; }
    std::string certificate() const { return m_dir.file("certificate"); }

 private:
    void start(uint16_t clear_port);
    void await_port();

    const TempDir m_dir;
    pid_t m_pid = -1;
    int m_notes = -1;  ///< what socat says, until the end: it must not write into a closed pipe
    uint16_t m_port = 0;
};

}  // namespace test
