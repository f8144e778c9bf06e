# synchelper-sim: scenario and trace parsing, expansion, report and timeline (unit), and runs of
# the real library through the simulator and its command line (e2e).
# The tools directory is added after the tests; its targets are resolved at generation.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  set(RYX_SIM_SCENARIOS RYX_SIM_SCENARIOS="${PROJECT_SOURCE_DIR}/tools/scenarios")
  ryx_add_test(sim_unit_test LABEL unit SOURCES sim_unit_test.cpp LIBS synchelper_sim_cli)
  target_compile_definitions(sim_unit_test PRIVATE ${RYX_SIM_SCENARIOS})
  ryx_add_test(sim_e2e_test LABEL e2e SOURCES sim_e2e_test.cpp LIBS synchelper_sim_run)
  add_dependencies(sim_e2e_test synchelper-sim)
  target_compile_definitions(sim_e2e_test PRIVATE ${RYX_SIM_SCENARIOS}
    RYX_SIM_BINARY="$<TARGET_FILE:synchelper-sim>" ${RYX_SCHEMA_CHECKS})
  ryx_add_test(sim_whatif_test LABEL e2e SOURCES sim_whatif_test.cpp LIBS synchelper_sim_run)
  add_dependencies(sim_whatif_test synchelper-sim)
  target_compile_definitions(sim_whatif_test PRIVATE ${RYX_SIM_SCENARIOS}
    RYX_SIM_BINARY="$<TARGET_FILE:synchelper-sim>" ${RYX_SCHEMA_CHECKS})
  ryx_add_test(sim_pile_test LABEL e2e SOURCES sim_pile_test.cpp LIBS synchelper_sim_run)
  add_dependencies(sim_pile_test synchelper-sim)
  target_compile_definitions(sim_pile_test PRIVATE RYX_SIM_BINARY="$<TARGET_FILE:synchelper-sim>"
    ${RYX_SCHEMA_CHECKS} RYX_SOURCE_DIR="${PROJECT_SOURCE_DIR}" RYX_PYTHON="${RYX_DEBIAN_PYTHON}")
  ryx_add_test(sim_flow_agreement_test LABEL e2e SOURCES sim_flow_agreement_test.cpp
    LIBS synchelper_sim_core)
  add_dependencies(sim_flow_agreement_test synchelper-sim)
  target_compile_definitions(sim_flow_agreement_test PRIVATE
    RYX_SIM_BINARY="$<TARGET_FILE:synchelper-sim>" ${RYX_SCHEMA_CHECKS}
    RYX_CONTRACT_TRACES="${CMAKE_CURRENT_SOURCE_DIR}/data/contracts")
  ryx_add_test(sim_live_test LABEL e2e SOURCES sim_live_test.cpp LIBS synchelper_sim_core)
  add_dependencies(sim_live_test synchelper-sim)
  target_compile_definitions(sim_live_test PRIVATE RYX_SIM_BINARY="$<TARGET_FILE:synchelper-sim>"
    ${RYX_SCHEMA_CHECKS})
  ryx_add_test(sim_cli_test LABEL e2e SOURCES sim_cli_test.cpp LIBS synchelper_sim_core)
  add_dependencies(sim_cli_test synchelper-sim)
  target_compile_definitions(sim_cli_test PRIVATE ${RYX_SIM_SCENARIOS}
    RYX_SIM_BINARY="$<TARGET_FILE:synchelper-sim>" ${RYX_SCHEMA_CHECKS}
    RYX_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
endif()
