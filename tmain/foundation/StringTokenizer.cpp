#include <tmain/foundation/Exception.h>
#include <tmain/foundation/StringTokenizer.h>

namespace text {

StringTokenizer::StringTokenizer(const char* s, char delimiter, bool returnEmpty)
    : mText(s ? s : ""), mDelimiter(delimiter), mReturnEmpty(returnEmpty), mPos(0), mDone(mText.empty()) {
    skipEmpty();
}

void StringTokenizer::skipEmpty() {
    if (mReturnEmpty || mDone)
        return;
    while (mPos < mText.size() && mText[mPos] == mDelimiter)
        ++mPos;
    if (mPos >= mText.size())
        mDone = true;
}

bool StringTokenizer::hasMoreTokens() const {
    return !mDone;
}

std::string StringTokenizer::nextToken() {
    if (mDone)
        throw core::IllegalStateException("StringTokenizer::nextToken: no more tokens");
    size_t end = mText.find(mDelimiter, mPos);
    if (end == std::string::npos) {
        std::string token = mText.substr(mPos);
        mPos = mText.size();
        mDone = true;
        return token;
    }
    std::string token = mText.substr(mPos, end - mPos);
    // The position after a trailing delimiter still holds one (empty) token.
    mPos = end + 1;
    skipEmpty();
    return token;
}

unsigned StringTokenizer::countTokens() const {
    if (mDone)
        return 0;
    unsigned count = 0;
    size_t pos = mPos;
    for (;;) {
        size_t end = mText.find(mDelimiter, pos);
        size_t stop = end == std::string::npos ? mText.size() : end;
        if (stop > pos || mReturnEmpty)
            ++count;
        if (end == std::string::npos)
            break;
        pos = end + 1;
    }
    return count;
}

} // namespace text
