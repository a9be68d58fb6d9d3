# SQLite, in which programs of the desk keep what many runs told. Leaves the interface target `sqlite`.
# Where the library is missing, as on a board or for another machine, what needs it says so when it is
# built.
find_path(SQLITE_INCLUDE_DIR sqlite3.h DOC "Folder of sqlite3.h; Debian package libsqlite3-dev")
find_library(SQLITE_LIBRARY sqlite3 DOC "SQLite; Debian package libsqlite3-dev")

add_library(sqlite INTERFACE)
if(SQLITE_INCLUDE_DIR AND SQLITE_LIBRARY)
  target_include_directories(sqlite SYSTEM INTERFACE ${SQLITE_INCLUDE_DIR})
  target_link_libraries(sqlite INTERFACE ${SQLITE_LIBRARY})
else()
  add_custom_target(sqlite_is_missing
                    COMMAND ${CMAKE_COMMAND} -E echo "SQLite, for the history of runs, is not here. Run scripts/setup.sh."
                    COMMAND ${CMAKE_COMMAND} -E false)
  add_dependencies(sqlite sqlite_is_missing)
endif()
