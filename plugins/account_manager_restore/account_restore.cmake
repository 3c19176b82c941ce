# The account restore: reads the Android account database, writes the export file and hands it
# to the account app through the migrate service.
add_library(account_restore STATIC
  ${CMAKE_CURRENT_LIST_DIR}/src/account_db.cpp
  ${CMAKE_CURRENT_LIST_DIR}/src/account_data_manager.cpp)
target_include_directories(account_restore PUBLIC ${CMAKE_CURRENT_LIST_DIR}/include)
target_link_libraries(account_restore
  PUBLIC restore_common file_migrate_client nlohmann_json::nlohmann_json zarvo_platform)
