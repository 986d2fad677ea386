#pragma once
#include <fstream>
#include <memory>
#include <string>
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace stream {

/// Reads a local file through a standard file stream whose buffer has the
/// size given to the constructor. Requests at least as large as that buffer
/// go to the file directly, so a caller with its own buffer pays no extra
/// copy. Without OM_BINARY the file is read as text: carriage returns are
/// dropped from what read() and readLine() deliver, as the Windows text mode
/// does.
class TMAIN_API FileInputStream : public InputStream {
public:
    explicit FileInputStream(const char* fileName, unsigned bufferSize = 4096);
    ~FileInputStream() override;
    FileInputStream(const FileInputStream&) = delete;
    FileInputStream& operator=(const FileInputStream&) = delete;

    /// Read access is always requested; OM_ATEND, OM_APPEND, OM_TRUNCATE and
    /// OM_BINARY are passed on. Measures the file size.
    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override;
    /// Throws IOException when the file refuses the position (e.g. before 0).
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override;
    bool hasError() const override { return mError; }

    /// The size measured at open minus the position.
    unsigned available() const override;
    using InputStream::read;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Reads up to the delimiter (consumed, not stored) or capacity-1 bytes,
    /// whichever comes first, and terminates the buffer.
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    /// True once the position reached the size measured at open or a read
    /// came up short.
    bool eof() const override;
    /// The file stream itself (also before the first open). Reading through
    /// it and through this object can be mixed.
    std::istream* getSTLStream() override;

    unsigned size() const { return mFileSize; }
    unsigned getFileSize() const { return mFileSize; }
    const std::string& getFileName() const { return mFileName; }

private:
    /// Removes every carriage return in place; returns the new length.
    unsigned processText(char* buffer, unsigned length);
    void checkOpen() const;
    /// The position as the file stream sees it (needed once the standard
    /// stream was handed out and may have moved it).
    unsigned long long position() const;

    std::string mFileName;
    std::unique_ptr<std::ifstream> mStream;
    unsigned mBufferSize;
    std::unique_ptr<char[]> mBuffer;
    unsigned mFileSize;
    unsigned long long mPosition;
    bool mSeekable;
    bool mShortRead;
    bool mText;
    bool mError;
    bool mSTLHandedOut;
};

} // namespace stream
} // namespace tarso
