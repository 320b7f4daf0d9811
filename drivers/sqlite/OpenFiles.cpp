#include "drivers/sqlite/OpenFiles.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

class OpenFile::List {
public:
    std::mutex mutex;
    std::vector<Entry> entries;
};

// Never destroyed: static objects of the application may own models.
OpenFile::List& OpenFile::list() {
    static List& all = *new List;
    return all;
}

OpenFile::OpenFile(const char* path) {
    Entry entry{{}, platform::processId(), this};
    if (*path == '\0' || !platform::identify(path, entry.id))
        return;
    const std::lock_guard guard(list().mutex);
    for (const Entry& each : list().entries)
        if (each.id == entry.id && each.process != entry.process)
            throw SqlFailure(std::string("the file \"") + path +
                             "\" was open in the process that this one was forked from, and "
                             "SQLite would take that one's locks for this one's: close it there "
                             "before the fork, parked drivers included");
    list().entries.push_back(entry);
}

// What a process that this one was forked from has opened stays.
OpenFile::~OpenFile() {
    const std::lock_guard guard(list().mutex);
    std::erase_if(list().entries, [&](const Entry& each) { return each.owner == this; });
}

}  // namespace Kes::sql
