# What the two kinds of packages do differently; read by cpack for each.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
    set(CPACK_COMPONENTS_ALL vdk)
endif()
