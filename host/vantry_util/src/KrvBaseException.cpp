// The suite's exception type.
#include <vantry_util/KrvBaseException.h>

KrvBaseException::KrvBaseException() = default;

KrvBaseException::KrvBaseException(const std::string& message, const std::string& file, std::uint64_t line)
    : m_message(message), m_file(file), m_line(line) {}

KrvBaseException::KrvBaseException(const KrvBaseException& other) = default;
KrvBaseException& KrvBaseException::operator=(const KrvBaseException& other) = default;
KrvBaseException::~KrvBaseException() = default;

const char* KrvBaseException::what() const noexcept { return m_message.c_str(); }
