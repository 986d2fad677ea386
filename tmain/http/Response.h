#pragma once
#include <string>
#include <tmain/http/Sentence.h>

namespace tarso {
namespace http {

/// An HTTP response: a status with its reason text, headers and body.
class TMAIN_API Response : public Sentence {
public:
    struct Status {
        unsigned code;
        std::string message;
    };

    /// Status 0 with an empty reason.
    Response();
    explicit Response(const Status& status);

    const Status& getStatus() const { return mStatus; }
    unsigned getStatusCode() const { return mStatus.code; }
    const char* getStatusMessage() const { return mStatus.message.c_str(); }
    /// A null message means an empty reason.
    void setStatus(unsigned code, const char* message);

private:
    Status mStatus;
};

} // namespace http
} // namespace tarso
