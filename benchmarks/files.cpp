#include "files.h"

#include "require.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

void writeFile(const std::string &path, const void *bytes, size_t size)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    require(file >= 0, "opening " + path);
    const char *at = static_cast<const char *>(bytes);
    while (size > 0) {
        const ssize_t written = write(file, at, size);
        require(written > 0, "writing " + path);
        at += written;
        size -= size_t(written);
    }
    require(fsync(file) == 0 && close(file) == 0, "flushing " + path);
}

std::vector<char> readFile(const std::string &path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status;
    require(file >= 0 && fstat(file, &status) == 0, "opening " + path);
    std::vector<char> bytes(size_t(status.st_size));
    for (size_t filled = 0; filled < bytes.size();) {
        const ssize_t got = read(file, bytes.data() + filled, bytes.size() - filled);
        require(got > 0, "reading " + path);
        filled += size_t(got);
    }
    close(file);
    return bytes;
}

size_t packedSize(const std::vector<char> &bytes)
{
    constexpr int kGzip = 31, kMemory = 8, kLevel = 6;
    std::vector<Bytef> out(1 << 16);
    z_stream stream = {};
    require(deflateInit2(&stream, kLevel, Z_DEFLATED, kGzip, kMemory, Z_DEFAULT_STRATEGY) == Z_OK,
            "setting zlib up");
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.data()));
    stream.avail_in = uInt(bytes.size());
    int result = Z_OK;
    while (result == Z_OK) {
        stream.next_out = out.data();
        stream.avail_out = uInt(out.size());
        result = deflate(&stream, Z_FINISH);
    }
    const size_t size = stream.total_out;
    require(deflateEnd(&stream) == Z_OK && result == Z_STREAM_END, "deflating");
    return size;
}
