#pragma once
// The four facts in every report: version, platform, engine, process. All of this runs in signal context:
// fixed-size storage, no allocation.

#include <sys/types.h>

namespace corvo::server {

class CorvoDumpInfo {
 public:
    enum InfoFormat { INFO_PLAIN = 0, INFO_JSON = 1 };

    virtual ~CorvoDumpInfo() = default;
    virtual void fill() = 0;
    /**
     * Both append to the C string in `dst`, at most `size` bytes plus a terminator, stop at the first piece
     * that doesn't fit, and return the number of bytes used.
     */
    virtual unsigned int dump(unsigned char* dst, unsigned int size) = 0;
    virtual unsigned int dump_json(unsigned char* dst, unsigned int size) = 0;
};

class InfoVersion : public CorvoDumpInfo {
 public:
    void fill() override;
    unsigned int dump(unsigned char* dst, unsigned int size) override;
    unsigned int dump_json(unsigned char* dst, unsigned int size) override;

 private:
    char m_text[200] = "";
};

class InfoPlat : public CorvoDumpInfo {
 public:
    void fill() override;
    unsigned int dump(unsigned char* dst, unsigned int size) override;
    unsigned int dump_json(unsigned char* dst, unsigned int size) override;

 private:
    char m_machine[200] = "";
    char m_release[200] = "";
};

class InfoEngine : public CorvoDumpInfo {
 public:
    /** Fills nothing if there is no server, or no engine object yet. */
    void fill() override;
    unsigned int dump(unsigned char* dst, unsigned int size) override;
    unsigned int dump_json(unsigned char* dst, unsigned int size) override;

    static const char* eng_state_to_str(int state);

 private:
    int m_state = 0;
    char m_mode[100] = "";
    char m_path[100] = "";
    char m_version[2048] = "";  ///< JSON
};

class InfoProcess : public CorvoDumpInfo {
 public:
    void fill() override;
    unsigned int dump(unsigned char* dst, unsigned int size) override;
    unsigned int dump_json(unsigned char* dst, unsigned int size) override;

 private:
    pid_t m_pid = 0;
};

}  // namespace corvo::server
