// The smallest client: start the suite, read and set its memory limit, stop it.
// Built both by examples/consumer/CMakeLists.txt and by a pkg-config line:
//   g++ -std=c++17 main.cpp $(pkg-config --cflags --libs korvaneapi)
// (with LD_LIBRARY_PATH=<libdir> to run it when the libraries are not in the loader's paths).
#include <iostream>

#include <KorvaneAPI/KorvaneAPI.h>

int main() {
    try {
        std::cout << "KorvaneAPI " << KORVANEAPI_VERSION_STRING << '\n';
        initKorvaneAPI(nullptr);  // no settings folder: the suite's defaults
        setExtraMemUsage(64 << 20);
        std::cout << "memory limit: " << getExtraMemUsage() << " bytes\n";
        endKorvaneAPI();
        return 0;
    } catch (const std::exception& e) {  // KorvaneAPIException derives from it
        std::cerr << "start-up failed: " << e.what() << '\n';
        return 1;
    }
}
