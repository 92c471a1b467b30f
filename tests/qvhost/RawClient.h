// A client that says what it likes, byte by byte if need be.
#ifndef QVHOST_RAW_CLIENT_H
#define QVHOST_RAW_CLIENT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qv::host {

struct RawAnswer {
    uint32_t code = 0;
    uint32_t number = 0;
    std::string bytes;
};

// A header and as many bytes as it says.
std::string frame(uint32_t code, uint32_t number, const std::string& bytes = "");

class RawClient {
  public:
    // Connects. Throws std::system_error.
    explicit RawClient(const std::string& path);
    RawClient(RawClient&& other) noexcept;
    ~RawClient();

    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    RawClient& operator=(RawClient&&) = delete;

    // All of it; false when the host has closed the connection.
    bool send(const std::string& bytes) const;

    // As much as fits without waiting; false when nothing does.
    bool sendSome(const std::string& bytes) const;

    void endSending() const;

    // The next answer; none at the end of the connection, which must come between two answers.
    std::optional<RawAnswer> receive() const;

    // Those up to the end of the connection.
    std::vector<RawAnswer> receiveAll() const;

    std::optional<RawAnswer> ask(uint32_t code, uint32_t number,
                                 const std::string& bytes = "") const;

    // Whether the host answers.
    bool works() const;

    int descriptor() const { return descriptor_; }

  private:
    bool receive(char* bytes, std::size_t count) const;

    int descriptor_;
};

}  // namespace qv::host

#endif  // QVHOST_RAW_CLIENT_H
