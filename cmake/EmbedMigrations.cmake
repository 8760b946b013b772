# Writes the migrations of a folder into one C++ source: cmake -D MIGRATIONS=<folder> -D OUTPUT=<file> -P this file.
file(GLOB files ${MIGRATIONS}/*.sql)
list(SORT files)
set(entries "")
foreach(file IN LISTS files)
    get_filename_component(name ${file} NAME_WE)
    file(READ ${file} sql)
    string(APPEND entries "    {\"${name}\",\n     R\"sql(${sql})sql\"},\n")
endforeach()
file(WRITE ${OUTPUT} "// Generated from the folder Migrations.
#include <array>

#include \"Private/Database/Internal/ZAVSchemaMigrations.h\"

namespace zav {
namespace {

constexpr auto migrations = std::to_array<ZAVSchemaMigration>({
${entries}});

}  // namespace

std::span<const ZAVSchemaMigration> ZAVSchemaMigrations() noexcept {
    return migrations;
}

}  // namespace zav
")
