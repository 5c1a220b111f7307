#include "KxtTest.h"

#include <ostream>

namespace xhost {

// Readable Values in GoogleTest failure messages.
void PrintTo(const Value& v, std::ostream* os) {
    switch (v.type()) {
        case Value::Type::Nil:
            *os << "Nil";
            return;
        case Value::Type::String:
        case Value::Type::MemoryBlock:
            if (v.isNil()) {
                *os << "nil " << (v.type() == Value::Type::String ? "String" : "MemoryBlock");
            } else {
                *os << ::testing::PrintToString(v.bytes());
                if (v.type() == Value::Type::String)
                    *os << " (encoding 0x" << std::hex << v.encoding() << std::dec << ")";
            }
            return;
        case Value::Type::Integer:
            *os << v.asInteger();
            return;
        case Value::Type::Boolean:
            *os << (v.asBoolean() ? "true" : "false");
            return;
        case Value::Type::Double:
            *os << v.asDouble();
            return;
        case Value::Type::Ptr:
            *os << "Ptr " << v.asPointer();
            return;
        case Value::Type::Object:
            *os << (v.isNil() ? "nil object" : "object");
            return;
        case Value::Type::Array:
            *os << ::testing::PrintToString(v.strings());
            return;
    }
}

}  // namespace xhost
