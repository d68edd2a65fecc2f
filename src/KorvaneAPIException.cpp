// The library's exception: everything is the suite's base exception's.
#include <KorvaneAPI/KorvaneAPIException.h>

KorvaneAPIException::KorvaneAPIException() = default;

KorvaneAPIException::KorvaneAPIException(const std::string& message, const std::string& file, std::uint64_t line)
    : KrvBaseException(message, file, line) {}

KorvaneAPIException::KorvaneAPIException(const KorvaneAPIException& other) = default;
KorvaneAPIException& KorvaneAPIException::operator=(const KorvaneAPIException& other) = default;
KorvaneAPIException::~KorvaneAPIException() = default;
