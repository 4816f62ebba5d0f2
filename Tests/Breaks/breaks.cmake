# One source of the library is built for each break: most of that is reading the same headers.
cmake_language(DEFER CALL target_precompile_headers WFileSystemObjects PRIVATE
    <algorithm> <atomic> <map> <memory> <optional> <string> <string_view> <tuple> <vector>)
