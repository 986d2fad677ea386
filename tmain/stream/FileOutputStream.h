#pragma once
#include <fstream>
#include <memory>
#include <string>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace stream {

/// Writes a local file through a standard file stream; opened with OM_READ
/// as well it can read the file back. Note that OM_READ | OM_WRITE needs an
/// existing file: add OM_TRUNCATE to create it.
class TMAIN_API FileOutputStream : public OutputStream {
public:
    explicit FileOutputStream(const std::string& fileName);
    /// Closes the file; a failure to write out the last bytes is logged.
    ~FileOutputStream() override;
    FileOutputStream(const FileOutputStream&) = delete;
    FileOutputStream& operator=(const FileOutputStream&) = delete;

    /// OM_READ and OM_WRITE as requested; OM_ATEND, OM_APPEND, OM_TRUNCATE and
    /// OM_BINARY are passed on. Measures the file size.
    void open(EOpenMode mode) override;
    /// Throws IOException when the last bytes cannot be written out.
    void close() override;
    bool isOpen() const override;
    /// Throws IOException when the file refuses the position (e.g. before 0).
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override;
    bool hasError() const override { return mError; }

    using OutputStream::write;
    unsigned write(const void* buffer, unsigned size, unsigned count) override;
    /// Hands the buffered bytes to the system.
    void flush() override;
    /// The file stream itself (also before the first open).
    std::ostream* getSTLStream() override;

    /// Reads back from the current position; needs OM_READ at open.
    unsigned read(void* buffer, unsigned size, unsigned count);

    unsigned size() const { return mFileSize; }
    unsigned getFileSize() const { return mFileSize; }
    const std::string& getFileName() const { return mFileName; }

private:
    enum EDirection { DIR_NONE, DIR_READ, DIR_WRITE };

    void checkWritable() const;
    /// Switching between reading and writing needs a seek in between.
    void turnTo(EDirection direction);

    std::string mFileName;
    std::unique_ptr<std::fstream> mStream;
    unsigned mFileSize;
    EDirection mDirection;
    bool mError;
    bool mSTLHandedOut;
};

} // namespace stream
} // namespace tarso
