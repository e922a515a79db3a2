# The unit tests: one executable a layer, one <name>_test.cc for each <name>.cc of src/.

# Objects, not a library: its slogf must be there before the platform's is looked for.
add_library(harbix_recorded_log OBJECT support/recorded_log.cc)
target_include_directories(harbix_recorded_log PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(harbix_recorded_log PRIVATE harbix_settings)

# harbix_unit_test(NAME SOURCES file... [LINKS target...])
function(harbix_unit_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE harbix_test_support ${TEST_LINKS} GTest::gtest_main harbix_settings)
  target_precompile_headers(${name} REUSE_FROM harbix_test_headers)
  gtest_discover_tests(${name} PROPERTIES LABELS unit TIMEOUT 60)
endfunction()

harbix_unit_test(support_test SOURCES support/tree_test.cc)
harbix_unit_test(platform_test
  SOURCES
    platform/glob_test.cc platform/logger_test.cc platform/open_beneath_test.cc platform/platform_test.cc platform/process_test.cc
  LINKS harbix::platform)
harbix_unit_test(base_test
  SOURCES base/constants_test.cc base/file_descriptor_test.cc base/log_test.cc base/report_test.cc
  LINKS harbix_recorded_log harbix::base)
harbix_unit_test(fs_test
  SOURCES
    fs/accounts_test.cc fs/containment_test.cc fs/exception_test.cc fs/file_test.cc fs/folder_test.cc fs/glob_test.cc fs/identity_test.cc
    fs/path_test.cc fs/tree_test.cc fs/walk_test.cc fs/working_directory_test.cc
  LINKS harbix_recorded_log harbix::fs)
harbix_unit_test(archive_test
  SOURCES
    archive/extraction_test.cc archive/file_record_path_test.cc archive/file_record_test.cc
    archive/header_only_test.cc archive/input_file_test.cc archive/manifest_test.cc
    archive/metadata_entry_test.cc archive/output_file_test.cc archive/package_name_test.cc archive/package_writer_test.cc
    archive/plain_header_test.cc archive/plain_headers_test.cc archive/pps_object_test.cc archive/reader_damage_test.cc archive/reader_sections_test.cc
    archive/reader_test.cc archive/record_names_test.cc archive/source_test.cc archive/space_report_test.cc archive/survey_test.cc
    archive/writer_test.cc
    archive/item_list_test.cc
    archive/read_ahead_test.cc
  LINKS harbix_recorded_log harbix::archive)
harbix_unit_test(subscribers_test
  SOURCES subscribers/subscribers_test.cc
  LINKS harbix_recorded_log harbix::subscribers)
harbix_unit_test(media_test
  SOURCES media/library_test.cc media/share_test.cc
  LINKS harbix_recorded_log harbix::media)
harbix_unit_test(settings_test
  SOURCES
    settings/backup_test.cc settings/path_list_test.cc settings/restore_links_test.cc
    settings/restore_stream_test.cc settings/restore_test.cc settings/round_trip_test.cc
    settings/script_lists_test.cc settings/settings_device.cc
    settings/verification_test.cc
  LINKS harbix_recorded_log harbix::settings)
harbix_unit_test(updater_test
  SOURCES
    updater/installer_client_test.cc updater/registered_applications_test.cc updater/request_object_test.cc
  LINKS harbix_recorded_log harbix::updater)
harbix_unit_test(app_test
  SOURCES
    app/app_device.cc app/application_archive_test.cc 
    app/application_package_test.cc app/backup_test.cc app/component_restore_test.cc app/home_screen_rules_test.cc
    app/home_screen_programs_test.cc app/home_screen_restore_test.cc app/layout_test.cc app/ownership_test.cc
    app/package_entries_test.cc app/package_extraction_test.cc app/restore_test.cc
  LINKS harbix_recorded_log harbix::app)
harbix_unit_test(driver_test
  SOURCES
    driver/keywords_test.cc driver/options_test.cc driver/process_test.cc driver/run_test.cc
    driver/size_report_test.cc
  LINKS harbix_recorded_log harbix::driver)

# To be preloaded, so that a program under test stays as it ships. Never sanitized: the sanitizer has calls of
# the same names, and wants to be loaded first.
add_library(failing_calls MODULE support/failing_calls.cc)
target_link_libraries(failing_calls PRIVATE ${CMAKE_DL_LIBS} harbix_settings)
add_executable(failing_calls_probe support/failing_calls_probe.cc)
target_link_libraries(failing_calls_probe PRIVATE harbix_settings)
if(HARBIX_SANITIZE)
  foreach(target failing_calls failing_calls_probe)
    target_compile_options(${target} PRIVATE -fno-sanitize=all)
    target_link_options(${target} PRIVATE -fno-sanitize=all)
  endforeach()
endif()
add_dependencies(support_test failing_calls failing_calls_probe)
target_sources(support_test PRIVATE support/failing_calls_test.cc)
target_compile_definitions(support_test PRIVATE
  HARBIX_FAILING_CALLS="$<TARGET_FILE:failing_calls>"
  HARBIX_FAILING_CALLS_PROBE="$<TARGET_FILE:failing_calls_probe>")
