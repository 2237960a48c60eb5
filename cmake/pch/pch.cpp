// Carrier of the precompiled headers (cmake/Precompiled.cmake): the headers are compiled once
// here and every other target reuses the result.
