#pragma once

// Basic types and return codes of the DCPS API (OMG DDS 1.4, 2.2.1.1).

#include <cstddef>
#include <cstdint>

using DDS_Boolean = bool;
using DDS_Octet = uint8_t;
using DDS_Short = int16_t;
using DDS_UnsignedShort = uint16_t;
using DDS_Long = int32_t;
using DDS_UnsignedLong = uint32_t;

using DDS_DomainId_t = DDS_Long;

/// A plain integer, so that callers can print it.
using DDS_ReturnCode_t = int;
constexpr DDS_ReturnCode_t DDS_RETCODE_OK = 0;
constexpr DDS_ReturnCode_t DDS_RETCODE_ERROR = 1;
constexpr DDS_ReturnCode_t DDS_RETCODE_UNSUPPORTED = 2;
constexpr DDS_ReturnCode_t DDS_RETCODE_BAD_PARAMETER = 3;
constexpr DDS_ReturnCode_t DDS_RETCODE_PRECONDITION_NOT_MET = 4;
constexpr DDS_ReturnCode_t DDS_RETCODE_OUT_OF_RESOURCES = 5;
constexpr DDS_ReturnCode_t DDS_RETCODE_NOT_ENABLED = 6;
constexpr DDS_ReturnCode_t DDS_RETCODE_IMMUTABLE_POLICY = 7;
constexpr DDS_ReturnCode_t DDS_RETCODE_INCONSISTENT_POLICY = 8;
constexpr DDS_ReturnCode_t DDS_RETCODE_ALREADY_DELETED = 9;
constexpr DDS_ReturnCode_t DDS_RETCODE_TIMEOUT = 10;
constexpr DDS_ReturnCode_t DDS_RETCODE_NO_DATA = 11;
constexpr DDS_ReturnCode_t DDS_RETCODE_ILLEGAL_OPERATION = 12;

constexpr DDS_Long DDS_LENGTH_UNLIMITED = -1;
