korvel_fuzz(uci_parse korvel_uci)
korvel_fuzz(uci_delta korvel_uci)
target_include_directories(fuzz_uci_delta PRIVATE ${PROJECT_SOURCE_DIR}/platform/uci)
