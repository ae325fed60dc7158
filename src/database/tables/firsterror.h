#pragma once

#include <exception>
#include <utility>

/// Runs steps that all have to happen, keeps the first exception among them and throws it when all
/// are done.
class FirstError
{
public:
    template<class Step>
    void run(Step &&step)
    {
        try {
            std::forward<Step>(step)();
        } catch (...) {
            if (!m_error)
                m_error = std::current_exception();
        }
    }

    bool caught() const { return m_error != nullptr; }
    void rethrow() const
    {
        if (m_error)
            std::rethrow_exception(m_error);
    }

private:
    std::exception_ptr m_error;
};
