# Included after the project's own project(): what its cache holds by then.
get_cmake_property(cache_before CACHE_VARIABLES)
