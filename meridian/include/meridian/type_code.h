#pragma once

/// A type as it was discovered. Not constructible by callers.
class DDS_TypeCode;
