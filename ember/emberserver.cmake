# The Ember+ provider: the instance tree and the Qt side (listening socket, consumer connections).
add_library(vexa_emberserver STATIC
    ${CMAKE_CURRENT_LIST_DIR}/sampletree.cpp ${CMAKE_CURRENT_LIST_DIR}/sampletree.h
    ${CMAKE_CURRENT_LIST_DIR}/emberserver.cpp ${CMAKE_CURRENT_LIST_DIR}/emberserver.h
    ${CMAKE_CURRENT_LIST_DIR}/emberclient.cpp)
target_include_directories(vexa_emberserver PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(vexa_emberserver PUBLIC vexa_ember vexa_logging Qt5::Core Qt5::Network)
set_target_properties(vexa_emberserver PROPERTIES AUTOMOC ON)
