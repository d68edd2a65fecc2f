// The suite's exception: a message with the source file and line that raised it.
#pragma once
#include <cstdint>
#include <exception>
#include <string>

#include <vantry_util/KrvExport.h>

class VANTRY_UTIL_EXPORT KrvBaseException : public std::exception {
public:
    KrvBaseException();
    KrvBaseException(const std::string& message, const std::string& file, std::uint64_t line);
    KrvBaseException(const KrvBaseException& other);
    KrvBaseException& operator=(const KrvBaseException& other);
    ~KrvBaseException() override;

    // The message alone, without file and line.
    const char* what() const noexcept override;

    const std::string& getMessage() const noexcept { return m_message; }
    const std::string& getFile() const noexcept { return m_file; }
    std::uint64_t getLine() const noexcept { return m_line; }

private:
    std::string m_message;
    std::string m_file;
    std::uint64_t m_line = 0;
};
