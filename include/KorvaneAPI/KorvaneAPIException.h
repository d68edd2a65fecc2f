// The one exception type the library throws: a start-up step that failed, or a Feret direction
// set that could not be sampled. It carries the message of the Error line logged just before,
// and that line's source file and line. Catch it as KorvaneAPIException, KrvBaseException or
// std::exception: what() gives the message.
#pragma once
#include <cstdint>
#include <string>

#include <KorvaneAPI/KorvaneAPIExport.h>
#include <vantry_util/KrvBaseException.h>

class KORVANEAPI_EXPORT KorvaneAPIException : public KrvBaseException {
public:
    KorvaneAPIException();
    KorvaneAPIException(const std::string& message, const std::string& file, std::uint64_t line);
    KorvaneAPIException(const KorvaneAPIException& other);
    KorvaneAPIException& operator=(const KorvaneAPIException& other);
    ~KorvaneAPIException() override;
};
