# The user restore: source user files to OS accounts, and the credential clean-up after it.
add_library(user_restore STATIC
  ${CMAKE_CURRENT_LIST_DIR}/src/user_xml_parse.cpp
  ${CMAKE_CURRENT_LIST_DIR}/src/user_base64_util.cpp
  ${CMAKE_CURRENT_LIST_DIR}/src/user_data_manager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/account_useriam/real/src/account_user_idm_client.cpp
  ${CMAKE_CURRENT_LIST_DIR}/account_useriam/real/src/account_user_idm_client_callback.cpp)
target_include_directories(user_restore PUBLIC
  ${CMAKE_CURRENT_LIST_DIR}/include
  ${CMAKE_CURRENT_LIST_DIR}/account_useriam/real/include)
target_link_libraries(user_restore PUBLIC restore_common file_migrate_client zarvo_platform LibXml2::LibXml2 OpenSSL::Crypto)
