#include <ZAVEventRepository/ZAVRepositories.h>

namespace zav {

ZAVRepositories::ZAVRepositories(const std::shared_ptr<FMDatabase>& database)
    : events(database),
      rows(database),
      streams(database),
      conversations(database),
      messages(database),
      keyedValues(database),
      changes(database) {}

}  // namespace zav
