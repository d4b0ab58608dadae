// The floor of `corvina-today --list --all`: every snapshot file of a container read and parsed
// with libplist alone, and the messages of each counted; no Qt, no records, no output but the
// count. Run by scripts/bench next to the program, on the same files, to give its cost as a ratio.
//
//   bench_plist_reader CONTAINER   (the folder that holds SharedData/Today/<account>/<file>)
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <plist/plist.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> entries(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = opendir(folder.c_str());
    if (!dir) {
        return names;
    }
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') {
            names.push_back(folder + "/" + entry->d_name);
        }
    }
    closedir(dir);
    return names;
}

bool readWhole(const std::string& path, std::vector<char>& bytes) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        close(fd);
        return false;
    }
    bytes.resize(static_cast<size_t>(info.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = read(fd, bytes.data() + done, bytes.size() - done);
        if (got <= 0) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    close(fd);
    bytes.resize(done);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CONTAINER\n", argv[0]);
        return 2;
    }
    const std::string today = std::string(argv[1]) + "/SharedData/Today";
    long messages = 0;
    std::vector<char> bytes;
    for (const std::string& account : entries(today)) {
        for (const std::string& file : entries(account)) {
            if (!readWhole(file, bytes) || bytes.empty()) {
                continue;
            }
            plist_t root = nullptr;
            const auto length = static_cast<uint32_t>(bytes.size());
            if (bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0) {
                plist_from_bin(bytes.data(), length, &root);
            } else {
                plist_from_xml(bytes.data(), length, &root);
            }
            if (!root) {
                continue;
            }
            const plist_t data = plist_dict_get_item(root, "data");
            if (data && plist_get_node_type(data) == PLIST_ARRAY) {
                messages += static_cast<long>(plist_array_get_size(data));
            }
            plist_free(root);
        }
    }
    std::printf("%ld\n", messages);
    return 0;
}
