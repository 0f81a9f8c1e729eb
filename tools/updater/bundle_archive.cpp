#include "bundle_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <memory>
#include <vector>

namespace velt::updater {
namespace {

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;
using Writer = std::unique_ptr<archive, decltype(&archive_write_free)>;

// Depth of a relative path after its components are applied one by one; negative as soon as
// it climbs above its start.
int depthAfter(int depth, const std::string& path) {
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string part = path.substr(start, end - start);
        if (part == "..") {
            if (--depth < 0) return -1;
        } else if (!part.empty() && part != ".") {
            ++depth;
        }
        start = end + 1;
    }
    return depth;
}

// Makes `folder` the working folder for its scope and returns to the previous one after.
class WorkingFolder {
  public:
    explicit WorkingFolder(const std::filesystem::path& folder)
        : previous_(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        entered_ = previous_ >= 0 && ::chdir(folder.c_str()) == 0;
    }
    ~WorkingFolder() {
        if (previous_ < 0) return;
        if (entered_ && ::fchdir(previous_) != 0) std::abort();  // nowhere safe to write then
        ::close(previous_);
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;
    bool entered() const { return entered_; }

  private:
    int previous_;
    bool entered_ = false;
};

std::string refusal(const std::string& why, const char* name) {
    return why + ": " + (name ? name : "(unnamed)");
}

}  // namespace

bool entryStaysInside(const std::string& name, const std::string& linkTarget) {
    if (name.empty() || name.front() == '/') return false;
    const int depth = depthAfter(0, name);
    if (depth < 0 || (depth == 0 && !linkTarget.empty())) return false;
    for (std::size_t start = 0; start <= name.size();) {
        const std::size_t end = std::min(name.find('/', start), name.size());
        if (name.compare(start, end - start, "..") == 0 && end - start == 2) return false;
        start = end + 1;
    }
    if (linkTarget.empty()) return true;
    if (linkTarget.front() == '/') return false;
    // The link lives in the folder of `name`, one level above the entry itself.
    return depthAfter(depth - 1, linkTarget) >= 0;
}

std::string extractPackage(const std::filesystem::path& package,
                           const std::filesystem::path& destination) {
    Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_format_tar(reader.get());
    if (archive_read_open_filename(reader.get(), package.c_str(), 1 << 16) != ARCHIVE_OK)
        return std::string("cannot open the package: ") + archive_error_string(reader.get());
    // Entries keep their relative names and are written from inside the destination, so that
    // libarchive's own checks against absolute paths stay in force as a second guard.
    const WorkingFolder inside(destination);
    if (!inside.entered()) return "cannot enter the staging folder";
    Writer writer(archive_write_disk_new(), &archive_write_free);
    archive_write_disk_set_options(
        writer.get(), ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_PERM |
                          ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                          ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS | ARCHIVE_EXTRACT_NO_OVERWRITE);
    int entries = 0;
    for (;;) {
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF) break;
        if (status != ARCHIVE_OK)
            return std::string("the package is damaged: ") + archive_error_string(reader.get());
        const char* name = archive_entry_pathname(entry);
        const mode_t type = archive_entry_filetype(entry);
        if (archive_entry_hardlink(entry)) return refusal("hard link in the package", name);
        if (type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK)
            return refusal("special file in the package", name);
        const char* link = archive_entry_symlink(entry);
        if (!name || !entryStaysInside(name, type == AE_IFLNK && link ? link : ""))
            return refusal("entry leaves the package folder", name);
        if (type == AE_IFLNK && !link) return refusal("link without a target", name);
        if (archive_write_header(writer.get(), entry) != ARCHIVE_OK)
            return refusal(archive_error_string(writer.get()), name);
        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        int read = ARCHIVE_OK;
        while ((read = archive_read_data_block(reader.get(), &block, &size, &offset)) ==
               ARCHIVE_OK) {
            if (archive_write_data_block(writer.get(), block, size, offset) != ARCHIVE_OK)
                return refusal(archive_error_string(writer.get()), name);
        }
        if (read != ARCHIVE_EOF)
            return std::string("the package is damaged: ") + archive_error_string(reader.get());
        if (archive_write_finish_entry(writer.get()) != ARCHIVE_OK)
            return refusal(archive_error_string(writer.get()), name);
        ++entries;
    }
    if (entries == 0) return "the package is empty";
    return {};
}

}  // namespace velt::updater
