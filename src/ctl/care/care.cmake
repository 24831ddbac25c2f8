# Commands that look after what is there.
target_sources(keldothumbctl_lib PRIVATE
  care/clean_command.cpp
  care/doctor_command.cpp
  care/doctor_programs.cpp
  care/doctor_system.cpp
  care/index_report.cpp
  care/metadata_cleaner.cpp
  care/metadata_names.cpp
  care/program_output.cpp
  care/progress_command.cpp
  care/queue_commands.cpp
  care/queue_run.cpp
  care/size_text.cpp
  care/work_in_hand.cpp
  care/work_queue_file.cpp)
target_link_libraries(keldothumbctl_lib PRIVATE PkgConfig::LIBRAW ${CMAKE_DL_LIBS})

if(KELDO_BUILD_TESTS)
  keldo_unit_test(ctl_care_test
    SOURCES
      care/clean_command_test.cpp
      care/doctor_test.cpp
      care/index_report_test.cpp
      care/metadata_cleaner_test.cpp
      care/program_output_test.cpp
      care/progress_command_test.cpp
      care/queue_commands_test.cpp
      care/work_in_hand_test.cpp
      care/work_queue_file_test.cpp
    LIBS keldothumbctl_lib syslog_capture test_pictures test_support)
endif()
