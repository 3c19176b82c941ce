# The shared plug-in the migrate server loads. It exports RestoreData and nothing else.
if(TARGET account_restore AND TARGET user_restore)
  set(plugin_map ${CMAKE_CURRENT_SOURCE_DIR}/libaccount_manager_restore.map)
  add_library(account_manager_restore SHARED src/restore_plugin.cpp)
  target_include_directories(account_manager_restore PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/include)
  target_link_libraries(account_manager_restore PRIVATE account_restore user_restore restore_common)
  target_link_options(account_manager_restore PRIVATE -Wl,--version-script=${plugin_map})
  # Every symbol must resolve at link time; clang's sanitizer runtime is the exception, since it
  # lives in the executable that loads the plug-in.
  if(NOT (ENABLE_SANITIZERS AND CMAKE_CXX_COMPILER_ID MATCHES Clang))
    target_link_options(account_manager_restore PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(account_manager_restore PROPERTIES
    LINK_DEPENDS ${plugin_map}
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  zarvo_install(account_manager_restore LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
