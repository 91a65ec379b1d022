#pragma once

#include <vqutil/Export.h>

#include <exception>
#include <iosfwd>
#include <string>

/// The platform's exception: one text that names what failed.
class VQ_API VQException : public std::exception
{
public:
    explicit VQException(std::string text);
    ~VQException() override;

    /// The text as given; valid as long as the exception.
    const char* what() const noexcept override;

private:
    std::string text;
};

/// Writes the exception's text, without a line end.
VQ_API std::ostream& operator<<(std::ostream& stream, const VQException& exception);

/// A buffer is too small for what should be copied into it.
class VQ_API BufferMismatchException : public VQException
{
public:
    explicit BufferMismatchException(std::string text);
    ~BufferMismatchException() override;
};
