#include "client/classify/byte_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "client/failure.h"
#include "client/interrupt.h"
#include "utils/unique_fd.h"

namespace brumectl {

namespace {

constexpr size_t BUFFER_BYTES = 256UL * 1024;
constexpr int IDLE_MS = 20000;
/** zlib's codes for the largest window and gzip's header. */
constexpr int GZIP_WINDOW = 15 + 16;

/** The source of a stream that can't use the descriptor directly: bytes that arrive slowly, or compressed. */
class Unpacker {
 public:
    Unpacker(corvo::UniqueFd fd, bool may_wait, const std::function<void()>& idle)
        : m_fd(std::move(fd)), m_may_wait(may_wait), m_idle(idle), m_packed(BUFFER_BYTES) {}
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;
    ~Unpacker() {
        if (m_is_gzip) inflateEnd(&m_zlib);
    }

    /** Examines the first bytes. Throws Failure, Interrupted. */
    void begin() {
        while (m_zlib.avail_in < 2) {
            const ssize_t got = fetch();
            if (got < 0) interrupt::check();
            if (got < 0) throw Failure(strerror(errno));
            if (got == 0) break;
        }
        if (m_zlib.avail_in == 0) throw Failure("no bytes in it");
        if (m_zlib.avail_in < 2 || m_zlib.next_in[0] != 0x1f || m_zlib.next_in[1] != 0x8b) return;
        if (inflateInit2(&m_zlib, GZIP_WINDOW) != Z_OK) throw Failure("out of memory");
        m_is_gzip = true;
    }
    bool is_gzip() const { return m_is_gzip; }
    int release() { return m_fd.release(); }

    /** Like read(2). No exception may pass the C library that calls this. */
    ssize_t read(char* to, size_t size) {
        // libpcap may read several times before it returns a packet.
        if (interrupt::pending()) return -1;
        size = std::min<size_t>(size, 1 << 30);
        return m_is_gzip ? unpack(to, size) : copy(to, size);
    }

 private:
    bool await() const {
        try {
            while (!interrupt::wait_readable(m_fd.get(), IDLE_MS))
                if (m_idle) m_idle();
            return true;
        } catch (const std::exception&) {
            errno = EINTR;  // the caller checks for the interrupt itself
            return false;
        }
    }

    /** Reads more bytes after the remaining ones; 0 at the end. */
    ssize_t fetch() {
        if (m_zlib.avail_in > 0) memmove(m_packed.data(), m_zlib.next_in, m_zlib.avail_in);
        m_zlib.next_in = m_packed.data();
        ssize_t got = 0;
        do {
            if (m_may_wait && !await()) return -1;
            got = ::read(m_fd.get(), m_packed.data() + m_zlib.avail_in, m_packed.size() - m_zlib.avail_in);
        } while (got < 0 && (errno == EINTR || errno == EAGAIN));
        if (got > 0) m_zlib.avail_in += static_cast<unsigned>(got);
        return got;
    }

    ssize_t copy(char* to, size_t size) {
        if (m_zlib.avail_in == 0)
            if (const ssize_t got = fetch(); got <= 0) return got;
        const size_t count = std::min<size_t>(size, m_zlib.avail_in);
        memcpy(to, m_zlib.next_in, count);
        m_zlib.next_in += count;
        m_zlib.avail_in -= static_cast<unsigned>(count);
        return static_cast<ssize_t>(count);
    }

    /**
     * Corrupt data is an error of the stream; otherwise truncation would look like the end of the capture.
     */
    ssize_t unpack(char* to, size_t size) {
        m_zlib.next_out = reinterpret_cast<unsigned char*>(to);
        m_zlib.avail_out = static_cast<unsigned>(size);
        while (m_zlib.avail_out == size) {
            if (m_zlib.avail_in == 0) {
                const ssize_t got = fetch();
                if (got < 0) return -1;
                if (got == 0 && m_is_between) return 0;
                if (got == 0) return fault();
            }
            if (m_is_between && m_zlib.next_in[0] != 0x1f) return 0;  // padding after the last member
            m_is_between = false;
            const int rc = inflate(&m_zlib, Z_NO_FLUSH);
            if (rc != Z_OK && rc != Z_STREAM_END) return fault();
            if (rc == Z_STREAM_END) m_is_between = inflateReset(&m_zlib) == Z_OK;
        }
        return static_cast<ssize_t>(size - m_zlib.avail_out);
    }
    static ssize_t fault() {
        errno = EBADMSG;
        return -1;
    }

    corvo::UniqueFd m_fd;
    bool m_may_wait;
    std::function<void()> m_idle;
    std::vector<unsigned char> m_packed;
    z_stream m_zlib = {};
    bool m_is_gzip = false;
    bool m_is_between = false;  ///< a gzip member has ended, another may follow
};

corvo::UniqueFile stream_of(std::unique_ptr<Unpacker> unpacker) {
    cookie_io_functions_t functions = {};
    functions.read = [](void* cookie, char* to, size_t size) {
        return static_cast<Unpacker*>(cookie)->read(to, size);
    };
    functions.close = [](void* cookie) {
        delete static_cast<Unpacker*>(cookie);
        return 0;
    };
    corvo::UniqueFile file(fopencookie(unpacker.get(), "rb", functions));
    if (!file) throw Failure("out of memory");
    static_cast<void>(unpacker.release());
    return file;
}

corvo::UniqueFd open_bytes(const std::string& path) {
    // Non-blocking: the other end of a named pipe may never appear.
    corvo::UniqueFd fd(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                   : ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd) throw Failure(strerror(errno));
    if (isatty(fd.get()) != 0) throw Failure("a terminal, not a capture");
    return fd;
}

}  // namespace

ByteStream ByteStream::open(const std::string& path, const std::function<void()>& idle) {
    corvo::UniqueFd fd = open_bytes(path);
    struct stat st = {};
    if (fstat(fd.get(), &st) != 0) throw Failure(strerror(errno));
    if (S_ISDIR(st.st_mode)) throw Failure("a folder, not a capture");
    const bool is_regular = S_ISREG(st.st_mode);
    if (!is_regular && !S_ISFIFO(st.st_mode) && !S_ISSOCK(st.st_mode)) throw Failure("no regular file");
    if (is_regular && st.st_size == 0) throw Failure("an empty file");

    ByteStream out;
    if (is_regular) out.path = path == "-" ? "/dev/stdin" : path;
    out.size = is_regular ? static_cast<uint64_t>(st.st_size) : 0;
    const off_t begin = is_regular ? lseek(fd.get(), 0, SEEK_CUR) : 0;
    auto unpacker = std::make_unique<Unpacker>(std::move(fd), !is_regular, idle);
    unpacker->begin();
    if (is_regular && !unpacker->is_gzip()) {
        const int plain = unpacker->release();
        lseek(plain, begin, SEEK_SET);
        out.file.reset(fdopen(plain, "rb"));
        if (!out.file) close(plain);
    } else {
        out.file = stream_of(std::move(unpacker));
    }
    if (!out.file) throw Failure("out of memory");
    out.buffer = give_buffer(out.file.get());
    return out;
}

// Without a buffer from us, the C library doesn't heed the size.
std::unique_ptr<char[]> give_buffer(FILE* file) {
    auto buffer = std::make_unique_for_overwrite<char[]>(BUFFER_BYTES);
    setvbuf(file, buffer.get(), _IOFBF, BUFFER_BYTES);
    return buffer;
}

}  // namespace brumectl
