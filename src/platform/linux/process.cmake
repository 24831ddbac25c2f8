# Processes, signals and the programs that are run.
target_sources(platform_linux PRIVATE
  child.cpp
  converter_names.cpp
  deadline.cpp
  isolated.cpp
  kill.cpp
  pid_file.cpp
  popen.cpp
  process_runner.cpp
  termination.cpp)
