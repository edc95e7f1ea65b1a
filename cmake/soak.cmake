# What only shows after a long time or in a rare moment. The short forms are tests; the
# long ones are scripts/sigint-storm and scripts/soak.
find_package(CLI11 REQUIRED)

add_executable(interrupted_application
  ${CMAKE_SOURCE_DIR}/tests/reliability/interrupted_application.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/StormChildren.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/StormEnd.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/StormPrograms.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/StormTraffic.cpp)
target_link_libraries(interrupted_application PRIVATE tessaline tessaline-board ${CMAKE_DL_LIBS})

add_executable(sigint_storm ${CMAKE_SOURCE_DIR}/tests/reliability/sigint_storm.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/InterruptedRun.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/ShutdownOrder.cpp)
target_link_libraries(sigint_storm PRIVATE CLI11::CLI11 nlohmann_json::nlohmann_json)
add_dependencies(sigint_storm interrupted_application)

add_executable(soak ${CMAKE_SOURCE_DIR}/tests/reliability/soak.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/FrameRuns.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/ProcessGauge.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/Soak.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/SoakHandlers.cpp)
target_link_libraries(soak PRIVATE tessaline tessaline-board CLI11::CLI11)

foreach(program interrupted_application sigint_storm soak)
  target_include_directories(${program} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(${program} PRIVATE tessaline_options)
endforeach()

# Each of the twelve activities of each of the ten products. The sanitizers and the
# emulation make everything slower, so less of it has to do: each activity twice.
set(storm_runs 110)
set(soak_models K3610 K4010)
if(TESSALINE_SANITIZED OR CMAKE_CROSSCOMPILING)
  set(storm_runs 22)
  set(soak_models K3610)
endif()

# The storm starts it as a program of its own, which an emulated processor's has to be told.
set(storm_application $<TARGET_FILE:interrupted_application>)
if(CMAKE_CROSSCOMPILING)
  set(storm_application ${CMAKE_BINARY_DIR}/emulated_application)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  file(GENERATE OUTPUT ${storm_application}
    CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:interrupted_application> \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
endif()

# How long it takes is no matter of a test on a machine that others use too.
add_test(NAME reliability/SigintStorm.EndsInOrder
  COMMAND sigint_storm ${storm_runs} --within 100 --most 15 --application ${storm_application}
    --activity idle strips images registers handlers locks notifiers settings heap timer twice)
set_tests_properties(reliability/SigintStorm.EndsInOrder PROPERTIES
  LABELS reliability TIMEOUT 600 SKIP_RETURN_CODE 77)

foreach(model ${soak_models})
  add_test(NAME reliability/Soak.${model} COMMAND soak --strips 60000 --images 300 --model ${model})
  set_tests_properties(reliability/Soak.${model} PROPERTIES LABELS reliability TIMEOUT 600)
endforeach()
