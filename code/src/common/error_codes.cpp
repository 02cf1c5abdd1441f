#include "common/error_codes.h"

#include <array>
#include <cstdlib>

namespace vrk {

namespace {

struct Code_Text {
    Error_Code code;
    const char* text;
};

// Searched front to back, so the order is part of the behaviour: 72 stands after 77, and
// 40, 43, 54, 56, 78 and 79 have no entry.
constexpr Code_Text kCodeTexts[] = {
    {0, "Success"},
    {1, "General Failed"},
    {2, "Internal error"},
    {3, "Invalid Pointer"},
    {4, "Invalid argument"},
    {5, "Not implemented"},
    {6, "Out of memory"},
    {7, "Buffer error"},
    {8, "Permission denied"},
    {9, "Timed out"},
    {10, "Object not init"},
    {11, "Object init failed"},
    {12, "init log failed"},
    {13, "destory log failed"},
    {14, "Operation already in progress"},
    {15, "Operation now in progress"},
    {16, "Object exist"},
    {17, "Object not exist"},
    {18, "Device or resource busy"},
    {19, "Device or resource full"},
    {20, "Device or resource empty"},
    {21, "Device or resource open failed"},
    {22, "Device or resource read failed"},
    {23, "Device or resource write failed"},
    {24, "Device or resource delete failed"},
    {25, "Encode or decode failed"},
    {26, "CRC failed"},
    {27, "Object too many"},
    {28, "Object too small"},
    {29, "Network is unreachable"},
    {30, "Network is down"},
    {31, " thirty  lib error"},
    {32, "open file failed"},
    {33, "make dir failed"},
    {34, "input file path illegal"},
    {35, "input file is empty"},
    {36, "input dir illegal"},
    {37, "output file illegal"},
    {38, "output dir illegal"},
    {39, "file is damage"},
    {41, " encounter error ! when 1st extract jpeg"},
    {42, " encounter error ! when 2st extract tiff"},
    {44, "zip file open failed"},
    {45, "zip file is empty"},
    {46, "parse zip file failed"},
    {47, "make opf content file failed"},
    {48, "error !self make epub opf file open failed "},
    {49, "error !self make epub container.xml file open failed"},
    {50, "error !self make epub mimetype file open failed"},
    {51, "error !make epub from dir failed"},
    {52, "error !open debug classifed resources file  failed"},
    {53, "error ! self record error msg failed"},
    {55, "error ! make my svg file fail failed"},
    {57, "cfb file open failed"},
    {58, "cfb file is empty"},
    {59, "cfb file magic not right"},
    {60, "cfb file minor version not right"},
    {61, "cfb file major version not right"},
    {62, "cfb file endian not right"},
    {63, "cfb file sector shift not right"},
    {64, "cfb file  mini sector shift not right"},
    {65, "cfb file num of dir secs not right"},
    {66, "cfb file num of sat secs not right"},
    {67, "cfb file first dir sid not right"},
    {68, "cfb file mini stream cutoff size not right"},
    {69, "cfb file first disat sid not right"},
    {70, "cfb file num of disat secs not right"},
    {71, "cfb file sid in head disat not right"},
    {73, "cfb file cfb can not repair"},
    {74, "cfb file root de lost"},
    {75, "cfb file core de lost"},
    {76, "cfb file totally not a cfb"},
    {77, "cfb file ext not right"},
    {72, "cfb file is fine"},
    {80, "rtf file have no head,"},
    {81, "rtf file group is not match"},
};

constexpr const char* kUnknownCodeText = "Error code unknown";

struct Damage_Text {
    Cfb_Damaged_Type type;
    const char* text;
};

constexpr Damage_Text kDamageTexts[] = {
    {0, "文件大概率没逝~"},
    {59, "文件头部魔数错误~"},
    {60, "文件头部次版本错误~"},
    {61, "文件头部主版本错误~"},
    {62, "文件头部大小端错误~"},
    {63, "文件头部大扇区大小错误~"},
    {64, "文件头部小扇区大小错误~"},
    {65, "文件头部目录流扇区数错误~"},
    {66, "文件头部sat扇区数错误~"},
    {67, "文件头部目录流起始sid错误~"},
    {68, "文件头部小流阈值错误~"},
    {69, "文件头部disat起始sid错误~"},
    {70, "文件头部disat额外占用扇区数错误~"},
    {71, "文件头部disat的109个sid错误~"},
    {74, "文件根目录项丢失，没救了~"},
    {75, "文件核心目录项丢失，没救了~"},
    {76, "文件完全就不是一个cfb~"},
};

// k of the public result -(3100 + k % 20) for each code 0..77; codes outside take k = 20.
constexpr int kFallbackK = 20;
constexpr uint32_t kHighestFoldedCode = 77;

constexpr std::array<int, kHighestFoldedCode + 1> make_fold_table() {
    std::array<int, kHighestFoldedCode + 1> k{};
    for (auto& v : k) v = kFallbackK;
    k[0] = 0;
    k[72] = 0;
    for (int c = 1; c <= 5; ++c) k[c] = 1;
    k[6] = 2;
    for (int c : {10, 11, 12, 13, 52, 53}) k[c] = 3;
    k[31] = 4;
    k[32] = 5;
    k[33] = 5;
    for (int c = 34; c <= 38; ++c) k[c] = 6;
    k[57] = 7;
    k[58] = 7;
    for (int c = 59; c <= 71; ++c) k[c] = 8;
    k[73] = 9;
    k[74] = 10;
    k[75] = 11;
    k[76] = 12;
    k[19] = 13;
    k[77] = 14;
    return k;
}

constexpr auto kFoldTable = make_fold_table();

}  // namespace

const char* error_code_text(Error_Code code) {
    // The magnitude is looked up, so -57 reads as 57; INT32_MIN has no positive twin and
    // matches nothing.
    const int64_t magnitude = std::llabs(static_cast<int64_t>(code));
    for (const auto& entry : kCodeTexts) {
        if (entry.code == magnitude) return entry.text;
    }
    return kUnknownCodeText;
}

bool find_error_code_exact(Error_Code code, const char** text) {
    for (const auto& entry : kCodeTexts) {
        if (entry.code == code) {
            if (text != nullptr) *text = entry.text;
            return true;
        }
    }
    return false;
}

std::string damaged_type_description(Cfb_Damaged_Type type) {
    for (const auto& entry : kDamageTexts) {
        if (entry.type == type) return entry.text;
    }
    return "未知错误[" + std::to_string(static_cast<uint32_t>(type)) + "]~";
}

Api_Result_Code to_api_result_code(Error_Code code) {
    const auto index = static_cast<uint32_t>(code);
    const int k = index <= kHighestFoldedCode ? kFoldTable[index] : kFallbackK;
    if (k == 0) return 0;
    return -(3100 + k % 20);
}

}  // namespace vrk
