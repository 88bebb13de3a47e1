#include "thermokit/film/CPtrOver.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "thermokit/environment/CConfig.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/platform/Drive.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/Text.h"

namespace thermokit {

using namespace PtrHeader;
namespace Img = PtrImage;

namespace {

constexpr char kSignatureText[4] = {'R', 'K', 'K', '\0'};
constexpr char kVersionText[5] = {'5', '.', '6', '0', '\0'};
constexpr unsigned char kEndOfTextByte = 26;
// Sizes a header may state before it is taken for garbage.
constexpr uint32_t kMaxBlockSize = 64u << 20;
// Largest image a film of no image may announce (nothing in the file proves it).
constexpr uint64_t kMaxEmptyFilmPixels = 16u << 20;

}  // namespace

void CPtrOver::SetText(size_t off, size_t size, const char* text, size_t maxChars) {
    SetTextField(reinterpret_cast<char*>(m_Header + off), size, text, maxChars);
}
std::string CPtrOver::Text(size_t off, size_t size) const {
    return GetTextField(reinterpret_cast<const char*>(m_Header + off), size);
}

// ---------------------------------------------------------------- lifetime

CPtrOver::CPtrOver() {
    std::memset(m_Header, 0, sizeof(m_Header));
    std::memset(m_Image, 0, sizeof(m_Image));
    std::memset(m_fScale, 0, sizeof(m_fScale));
}

CPtrOver::CPtrOver(const std::string& fileName) : CPtrOver() {
    m_strFileName = fileName;
    m_bValid = CPtrOver::ReadHeader();
}

CPtrOver::CPtrOver(const CPtrOver& other) : CPtrOver() { *this = other; }

CPtrOver& CPtrOver::operator=(const CPtrOver& other) {
    if (this != &other) {
        LastError::operator=(other);
        m_strFileName = other.m_strFileName;
        m_bValid = other.m_bValid;
        std::memcpy(m_Header, other.m_Header, sizeof(m_Header));
        std::memcpy(m_Image, other.m_Image, sizeof(m_Image));
    }
    return *this;
}

CPtrOver::~CPtrOver() = default;

void CPtrOver::SetFileName(const std::string& fileName) { m_strFileName = fileName; }

// ---------------------------------------------------------------- creation

void CPtrOver::InitHeader(unsigned short point, unsigned short line, unsigned short bit) {
    std::memset(m_Header, 0, sizeof(m_Header));
    std::memcpy(m_Header + kSignature, kSignatureText, sizeof(kSignatureText));
    std::memcpy(m_Header + kVersion, kVersionText, sizeof(kVersionText));
    m_Header[kEndOfText] = kEndOfTextByte;
    const uint32_t count = static_cast<uint32_t>(point) * line;
    SetH<uint32_t>(kHeaderSize, static_cast<uint32_t>(kSize));
    SetH<uint32_t>(kImageHeaderSize, static_cast<uint32_t>(Img::kSize));
    SetH<uint32_t>(kRecordWords, static_cast<uint32_t>(Img::kSize / 2) + count);
    SetH<uint32_t>(kPixelCount, count);
    SetH<uint32_t>(kFrameCount, 0);
    SetH<uint32_t>(kCurrentFrame, 0);

    std::tm local {};
    const std::time_t now = std::time(nullptr);
    const bool clock = now != static_cast<std::time_t>(-1) && localtime_r(&now, &local) != nullptr;
    SetRecordingClock(clock ? &local : nullptr);

    SetH<uint16_t>(kPoint, point);
    SetH<uint16_t>(kLine, line);
    SetH<uint16_t>(kBit, bit);
    SetH<float>(kEmissivity, 1.0f);
    SetH<float>(kAmbiant, 293.15f);
    SetH<float>(kDistance, 1.0f);
    SetH<float>(kPeriod, 0.04f);
    SetH<float>(kIntegration, 0.001f);
    SetH<uint16_t>(kAverage, 1);
    SetH<uint16_t>(kMinLUT, 0);
    SetH<uint16_t>(kMaxLUT, thermokit::GetMaxLevel(bit));
    m_Header[kIRIGBPlay] = 1;
}

void CPtrOver::SetRecordingClock(const std::tm* local) {
    PTR_DATE date {};
    PTR_TIME time {};
    if (local) {
        date.year = static_cast<uint16_t>(local->tm_year + 1900);
        date.day = static_cast<uint8_t>(local->tm_mday);
        date.month = static_cast<uint8_t>(local->tm_mon + 1);
        time.minute = static_cast<uint8_t>(local->tm_min);
        time.hour = static_cast<uint8_t>(local->tm_hour);
        time.hundredths = 0;
        time.second = static_cast<uint8_t>(local->tm_sec);
    } else {
        time.minute = 255;
        time.hour = 255;
        time.hundredths = 0;
        time.second = 255;
    }
    SetDate(&date);
    SetTime(&time);
}

void CPtrOver::InitImage() { std::memset(m_Image, 0, sizeof(m_Image)); }

// ---------------------------------------------------------------- checks and file I/O

unsigned CPtrOver::PixelBytes(const unsigned char* header) {
    const uint64_t ihs = load<uint32_t>(header, kImageHeaderSize);
    const uint64_t count = load<uint32_t>(header, kPixelCount);
    const uint64_t bytes = static_cast<uint64_t>(load<uint32_t>(header, kRecordWords)) * 2;
    if (bytes == ihs + count * 2) return 2;
    if (bytes == ihs + count * 8) return 8;
    return 0;
}

int CPtrOver::CheckHeader(const unsigned char* header, int64_t fileLength, unsigned bytesPerPixel, std::string* why) {
    const auto refuse = [why](std::string text) {
        if (why) *why = std::move(text);
        return 0;
    };
    if (!header) return refuse("no header");
    if (std::memcmp(header + kSignature, kSignatureText, sizeof(kSignatureText)) != 0)
        return refuse("not a film (signature \"RKK\" expected)");
    const uint32_t hs = load<uint32_t>(header, kHeaderSize);
    const uint32_t ihs = load<uint32_t>(header, kImageHeaderSize);
    const uint32_t count = load<uint32_t>(header, kPixelCount);
    const uint16_t point = load<uint16_t>(header, kPoint);
    const uint16_t line = load<uint16_t>(header, kLine);
    const uint16_t bit = load<uint16_t>(header, kBit);
    if (hs < kSize || hs > kMaxBlockSize) return refuse("damaged: a header size of " + std::to_string(hs) + " bytes");
    if (ihs != 0 && (ihs < Img::kSize || ihs > kMaxBlockSize || (ihs & 1u)))
        return refuse("damaged: an image header size of " + std::to_string(ihs) + " bytes");
    if (count == 0 || count != static_cast<uint32_t>(point) * line)
        return refuse("damaged: its pixel count " + std::to_string(count) + " disagrees with its " +
                      std::to_string(point) + " x " + std::to_string(line) + " pixels");
    if (bit == 0 || bit > 16) return refuse("damaged: a depth of " + std::to_string(bit) + " bits (1 to 16 expected)");
    const unsigned bpp = PixelBytes(header);
    if (bpp == 0) return refuse("damaged: its record size fits neither 16-bit levels nor doubles");
    if (bytesPerPixel != 0 && bpp != bytesPerPixel)
        return refuse(bpp == 8 ? "a film of doubles, not of 16-bit levels" : "a film of 16-bit levels, not of doubles");
    // The record size is summed in 32 bits by the offset rule: it must not wrap.
    const uint64_t record = static_cast<uint64_t>(ihs) + static_cast<uint64_t>(count) * bpp;
    if (record > UINT32_MAX) return refuse("damaged: an image record of 4 GiB or more");
    if (fileLength >= 0) {
        const uint64_t oneImage = static_cast<uint64_t>(hs) + record;
        const uint32_t frames = load<uint32_t>(header, kFrameCount);
        if (oneImage > static_cast<uint64_t>(fileLength) && (frames != 0 || count > kMaxEmptyFilmPixels))
            return refuse("shorter than its header says (" + std::to_string(fileLength) + " bytes, one image needs " +
                          std::to_string(oneImage) + ")");
    }
    return 1;
}

int CPtrOver::ReadHeader() {
    File file;
    if (!file.Open(m_strFileName, File::modeRead | File::shareDenyWrite)) return SetLastError("cannot be opened", file);
    alignas(8) unsigned char block[kSize];
    if (!file.ReadRecord(block, sizeof(block)))
        return SetReadError(file, "not a film (shorter than the 3476-byte header)");
    std::string why;
    if (!CheckHeader(block, file.GetLength(), 0, &why)) return SetLastError(ErrorKind::Format, why);
    std::memcpy(m_Header, block, sizeof(block));
    ClearLastError();
    return 1;
}

int CPtrOver::WriteHeader() {
    File file;
    if (!file.Open(m_strFileName, File::modeWrite | File::shareDenyWrite | File::modeCreate | File::modeNoTruncate))
        return SetLastError("cannot be created", file);
    if (!file.WriteAt(0, m_Header, sizeof(m_Header))) return SetLastError("its header cannot be written", file);
    return 1;
}

// ---------------------------------------------------------------- structure

uint32_t CPtrOver::GetHeaderSize() const { return H<uint32_t>(kHeaderSize); }
uint32_t CPtrOver::GetImageHeaderSize() const { return H<uint32_t>(kImageHeaderSize); }
uint32_t CPtrOver::GetRecordWords() const { return H<uint32_t>(kRecordWords); }
long CPtrOver::GetSize() const { return static_cast<long>(H<uint32_t>(kPixelCount)); }
unsigned long CPtrOver::GetFrameNumber() const { return H<uint32_t>(kFrameCount); }
void CPtrOver::SetFrameNumber(unsigned long count) { SetH<uint32_t>(kFrameCount, static_cast<uint32_t>(count)); }
unsigned long CPtrOver::GetCurrentFrame() const { return H<uint32_t>(kCurrentFrame); }
void CPtrOver::SetCurrentFrame(unsigned long index) { SetH<uint32_t>(kCurrentFrame, static_cast<uint32_t>(index)); }
std::string CPtrOver::GetSignature() const { return Text(kSignature, 4); }
std::string CPtrOver::GetVersion() const { return Text(kVersion, 5); }
unsigned short CPtrOver::GetPoint() const { return H<uint16_t>(kPoint); }
unsigned short CPtrOver::GetLine() const { return H<uint16_t>(kLine); }
unsigned short CPtrOver::GetBit() const { return H<uint16_t>(kBit); }
void CPtrOver::SetBit(unsigned short bit) { SetH<uint16_t>(kBit, bit); }
unsigned short CPtrOver::GetMaxLevel() const { return thermokit::GetMaxLevel(GetBit()); }

// ---------------------------------------------------------------- date and time

void CPtrOver::GetDate(PTR_DATE* date) const {
    if (date) std::memcpy(date, m_Header + kDate, sizeof(PTR_DATE));
}
void CPtrOver::SetDate(const PTR_DATE* date) {
    if (date) std::memcpy(m_Header + kDate, date, sizeof(PTR_DATE));
}
void CPtrOver::GetTime(PTR_TIME* time) const {
    if (time) std::memcpy(time, m_Header + kTime, sizeof(PTR_TIME));
}
void CPtrOver::SetTime(const PTR_TIME* time) {
    if (time) std::memcpy(m_Header + kTime, time, sizeof(PTR_TIME));
}
unsigned char CPtrOver::GetThousandth() const { return m_Header[kThousandth]; }
void CPtrOver::SetThousandth(unsigned char thousandth) { m_Header[kThousandth] = thousandth; }

void CPtrOver::SetTime(double time) {
    unsigned short hour = 0, minute = 0, second = 0, hundredths = 0, thousandths = 0;
    SplitTime(time, &hour, &minute, &second, &hundredths, &thousandths, nullptr);
    PTR_TIME t {static_cast<uint8_t>(minute), static_cast<uint8_t>(hour), static_cast<uint8_t>(hundredths),
                static_cast<uint8_t>(second)};
    SetTime(&t);
    SetThousandth(static_cast<unsigned char>(thousandths));
}

double CPtrOver::GetTime() const {
    PTR_TIME t;
    GetTime(&t);
    double value = 0.0;
    MergeTime(&value, t.hour, t.minute, t.second, t.hundredths, GetThousandth(), 0);
    return value;
}

// ---------------------------------------------------------------- texts

void CPtrOver::SetCamera(const char* text) { SetText(kCamera, kTextSize, text, kTextSize - 1); }
std::string CPtrOver::GetCamera() const { return Text(kCamera, kTextSize); }
void CPtrOver::SetLens(const char* text) { SetText(kLens, kTextSize, text, kTextSize - 1); }
std::string CPtrOver::GetLens() const { return Text(kLens, kTextSize); }

void CPtrOver::SetFilter(const char* text, int index) {
    if (index == 0) SetText(kFilter, kTextSize, text, kTextSize - 1);
    else if (index > 0 && index < kFilterCount)
        SetText(kFilterNames + kTextSize * static_cast<size_t>(index - 1), kTextSize, text, kTextSize - 1);
}
std::string CPtrOver::GetFilter(int index) const {
    if (index == 0) return Text(kFilter, kTextSize);
    if (index > 0 && index < kFilterCount) return Text(kFilterNames + kTextSize * static_cast<size_t>(index - 1), kTextSize);
    return std::string();
}
void CPtrOver::SetApertureName(const char* text) { SetText(kApertureName, kTextSize, text, kTextSize - 1); }
std::string CPtrOver::GetApertureName() const { return Text(kApertureName, kTextSize); }
void CPtrOver::SetSerial(const char* text) { SetText(kSerial, kSerialSize, text, kSerialChars); }
std::string CPtrOver::GetSerial() const { return Text(kSerial, kSerialSize); }
void CPtrOver::SetSpecialUnitName(const char* text) {
    SetText(kSpecialUnitName, kSpecialUnitNameSize, text, kSpecialUnitNameSize - 1);
}
std::string CPtrOver::GetSpecialUnitName() const { return Text(kSpecialUnitName, kSpecialUnitNameSize); }
void CPtrOver::SetComment(const char* text) {
    if (text) SetText(kComment, kCommentSize, text, kCommentSize - 1);
}
std::string CPtrOver::GetComment() const { return Text(kComment, kCommentSize); }
void CPtrOver::SetFileTools(const char* text) { SetText(kFileTools, kFileToolsSize, text, kFileToolsSize - 1); }
std::string CPtrOver::GetFileTools() const { return Text(kFileTools, kFileToolsSize); }
void CPtrOver::SetLensReference(const char* text) { SetText(kLensReference, kTextSize, text, kTextSize - 1); }
std::string CPtrOver::GetLensReference() const { return Text(kLensReference, kTextSize); }

// ---------------------------------------------------------------- scene and optics

#define THERMOKIT_PTR_FIELD(Name, Type, Off)                \
    void CPtrOver::Set##Name(Type v) { SetH<Type>(Off, v); } \
    Type CPtrOver::Get##Name() const { return H<Type>(Off); }

THERMOKIT_PTR_FIELD(BilletSpeed, float, kBilletSpeed)
THERMOKIT_PTR_FIELD(BilletDiameter, float, kBilletDiameter)
THERMOKIT_PTR_FIELD(BilletShape, unsigned short, kBilletShape)
THERMOKIT_PTR_FIELD(Emissivity, float, kEmissivity)
THERMOKIT_PTR_FIELD(AmbiantTemperature, float, kAmbiant)
THERMOKIT_PTR_FIELD(Distance, float, kDistance)
THERMOKIT_PTR_FIELD(InductorCoil, unsigned char, kInductorCoil)
THERMOKIT_PTR_FIELD(InductorPower, int32_t, kInductorPower)
THERMOKIT_PTR_FIELD(InductorVoltage, unsigned short, kInductorVoltage)
THERMOKIT_PTR_FIELD(InductorFrequency, int32_t, kInductorFrequency)
THERMOKIT_PTR_FIELD(Synchronisation, unsigned char, kSynchronisation)
THERMOKIT_PTR_FIELD(Transmission, float, kTransmission)
THERMOKIT_PTR_FIELD(Extinction, float, kExtinction)
THERMOKIT_PTR_FIELD(AtmosphereTemperature, float, kAtmosphere)
THERMOKIT_PTR_FIELD(CutOn, float, kCutOn)
THERMOKIT_PTR_FIELD(CutOff, float, kCutOff)
THERMOKIT_PTR_FIELD(PixelSize, float, kPixelSize)
THERMOKIT_PTR_FIELD(PixelPitch, float, kPixelPitch)
THERMOKIT_PTR_FIELD(Aperture, float, kAperture)
THERMOKIT_PTR_FIELD(Detector, int32_t, kDetector)
THERMOKIT_PTR_FIELD(DetectorGain, unsigned short, kDetectorGain)
THERMOKIT_PTR_FIELD(Longitude, float, kLongitude)
THERMOKIT_PTR_FIELD(Latitude, float, kLatitude)
THERMOKIT_PTR_FIELD(Altitude, float, kAltitude)
THERMOKIT_PTR_FIELD(DistanceOffset, float, kDistanceOffset)
THERMOKIT_PTR_FIELD(Km, double, kKm)
THERMOKIT_PTR_FIELD(DemodeFrequency, float, kDemodFrequency)
THERMOKIT_PTR_FIELD(IntegrationMode, uint32_t, kIntegrationMode)
THERMOKIT_PTR_FIELD(Window, unsigned short, kWindow)
THERMOKIT_PTR_FIELD(NucIndex, unsigned short, kNucIndex)
THERMOKIT_PTR_FIELD(MasterClock, float, kMasterClock)
THERMOKIT_PTR_FIELD(PlaySpeed, int32_t, kPlaySpeed)
THERMOKIT_PTR_FIELD(CaptureBlackBody, float, kBlackBody)
THERMOKIT_PTR_FIELD(CaptureFilterWheel, unsigned char, kFilterWheel)
THERMOKIT_PTR_FIELD(CaptureFocal, unsigned char, kFocalIndex)
THERMOKIT_PTR_FIELD(MinLUT, unsigned short, kMinLUT)
THERMOKIT_PTR_FIELD(MaxLUT, unsigned short, kMaxLUT)
THERMOKIT_PTR_FIELD(ZoomX, float, kZoomX)
THERMOKIT_PTR_FIELD(ZoomY, float, kZoomY)
THERMOKIT_PTR_FIELD(SpecialUnit, unsigned short, kSpecialUnit)
THERMOKIT_PTR_FIELD(FramePeriod, float, kPeriod)
#undef THERMOKIT_PTR_FIELD

void CPtrOver::SetFocal(float focal) {
    SetH<float>(kFocal, focal);
    char text[64];
    std::snprintf(text, sizeof(text), "%g mm", static_cast<double>(focal));
    SetLens(text);
}
float CPtrOver::GetFocal() const {
    const std::string lens = GetLens();
    return static_cast<float>(std::strtod(lens.c_str(), nullptr));
}
float CPtrOver::GetFocalLength() const { return H<float>(kFocal); }

void CPtrOver::SetHousingTemperature(float value, int index) {
    if (index == 0 || index == 1) SetH<float>(kHousing + 4 * static_cast<size_t>(index), value);
}
float CPtrOver::GetHousingTemperature(int index) const {
    if (index == 0 || index == 1) return H<float>(kHousing + 4 * static_cast<size_t>(index));
    return 0.0f;
}

// ---------------------------------------------------------------- acquisition

void CPtrOver::SetAverage(unsigned short count) {
    if (count >= 2) SetH<uint16_t>(kAverage, count);
}
unsigned short CPtrOver::GetAverage() const {
    const uint16_t v = H<uint16_t>(kAverage);
    return v <= 1 ? 1 : v;
}
int CPtrOver::IsAverage() const { return H<uint16_t>(kAverage) >= 2 ? 1 : 0; }

void CPtrOver::SetSubSampling(int32_t factor) {
    if (factor >= 2) SetH<int32_t>(kSubSampling, factor);
}
int32_t CPtrOver::GetSubSampling() const {
    const int32_t v = H<int32_t>(kSubSampling);
    return v < 2 ? 1 : v;
}

void CPtrOver::SetExternalSync(unsigned char on) { m_Header[kExternalSync] = on; }
int CPtrOver::IsExternalSync() const { return m_Header[kExternalSync] != 0; }

void CPtrOver::SetFrameRate(float rate) {
    if (rate > 0.0f) SetH<float>(kPeriod, 1.0f / rate);
}
float CPtrOver::GetFrameRate() const {
    const float period = H<float>(kPeriod);
    return period > 0.0f ? 1.0f / period : 0.0f;
}

void CPtrOver::SetIntegration(float value, int index) {
    if (index == 0) {
        SetH<float>(kIntegration, value);
        SetI<float>(Img::kIntegration, value);
    } else if (index > 0 && index < kIntegrationCount) {
        SetH<float>(kIntegrationN + 4 * static_cast<size_t>(index), value);
    }
}
float CPtrOver::GetIntegration(int index) const {
    if (index == 0) return H<float>(kIntegration);
    if (index > 0 && index < kIntegrationCount) return H<float>(kIntegrationN + 4 * static_cast<size_t>(index));
    return 0.0f;
}

void CPtrOver::SetIRIGBPlay(int on) { m_Header[kIRIGBPlay] = on ? 1 : 0; }
int CPtrOver::IsIRIGBPlay() const { return m_Header[kIRIGBPlay] != 0; }

void CPtrOver::SetCaptureFlip(int x, int y) {
    m_Header[kFlipX] = static_cast<unsigned char>(x);
    m_Header[kFlipY] = static_cast<unsigned char>(y);
    m_Header[kFlipValid] = 1;
}
int CPtrOver::GetCaptureFlip(int& x, int& y) const {
    if (!m_Header[kFlipValid]) {
        x = 0;
        y = 0;
        return 0;
    }
    x = m_Header[kFlipX];
    y = m_Header[kFlipY];
    return 1;
}

// ---------------------------------------------------------------- display

void CPtrOver::SetZoomScrollPosition(int32_t x, int32_t y) {
    SetH<int32_t>(kZoomScrollX, x);
    SetH<int32_t>(kZoomScrollY, y);
}
void CPtrOver::GetZoomScrollPosition(int32_t& x, int32_t& y) const {
    x = H<int32_t>(kZoomScrollX);
    y = H<int32_t>(kZoomScrollY);
}

void CPtrOver::SetCurrentPalette(unsigned short index, unsigned char flag1, unsigned char flag2) {
    m_Header[kPaletteValid] = 1;
    SetH<uint16_t>(kPaletteIndex, index);
    m_Header[kPaletteFlag1] = flag1;
    m_Header[kPaletteFlag2] = flag2;
}
int CPtrOver::GetCurrentPalette(unsigned short& index, unsigned char& flag1, unsigned char& flag2) const {
    if (!m_Header[kPaletteValid]) return 0;
    index = H<uint16_t>(kPaletteIndex);
    flag1 = m_Header[kPaletteFlag1];
    flag2 = m_Header[kPaletteFlag2];
    return 1;
}
void CPtrOver::SetIndexCurrentUnit(unsigned short index) {
    m_Header[kUnitValid] = 1;
    SetH<uint16_t>(kUnitIndex, index);
}
int CPtrOver::GetIndexCurrentUnit(unsigned short& index) const {
    if (!m_Header[kUnitValid]) return 0;
    index = H<uint16_t>(kUnitIndex);
    return 1;
}

int CPtrOver::SetIsotherm(int index, int on, unsigned short low, unsigned short high, uint32_t colour) {
    if (index < 0 || index >= kIsothermCount) return 0;
    const size_t off = kIsotherm + kIsothermSize * static_cast<size_t>(index);
    m_Header[off] = static_cast<unsigned char>(on);
    SetH<uint16_t>(off + 1, low);
    SetH<uint16_t>(off + 3, high);
    SetH<uint32_t>(off + 5, colour);
    return 1;
}
int CPtrOver::GetIsotherm(int index, int& on, unsigned short& low, unsigned short& high, uint32_t& colour) const {
    if (index < 0 || index >= kIsothermCount) return 0;
    const size_t off = kIsotherm + kIsothermSize * static_cast<size_t>(index);
    on = m_Header[off];
    low = H<uint16_t>(off + 1);
    high = H<uint16_t>(off + 3);
    colour = H<uint32_t>(off + 5);
    return 1;
}

int CPtrOver::SetZero(int on, unsigned short level) {
    m_Header[kZeroOn] = static_cast<unsigned char>(on);
    SetH<uint16_t>(kZeroLevel, level);
    return 1;
}
int CPtrOver::GetZero(int& on, unsigned short& level) const {
    on = m_Header[kZeroOn];
    level = H<uint16_t>(kZeroLevel);
    return 1;
}
int CPtrOver::SetPaletteWidth(unsigned short width) {
    SetH<uint16_t>(kPaletteWidth, width);
    return 1;
}
unsigned short CPtrOver::GetPaletteWidth() const { return H<uint16_t>(kPaletteWidth); }
int CPtrOver::SetPaletteFullScaleDisplay(int on) {
    m_Header[kPaletteFullScale] = static_cast<unsigned char>(on);
    return 1;
}
int CPtrOver::GetPaletteFullScaleDisplay() const { return m_Header[kPaletteFullScale]; }

void CPtrOver::SetHistoEqualisation(int on, unsigned short percent) {
    m_Header[kHistoOn] = static_cast<unsigned char>(on & 1);
    // 100 % or more would cut every pixel: the largest meaningful value is kept instead.
    SetH<uint16_t>(kHistoPercent, percent < 100 ? percent : 99);
}
int CPtrOver::GetHistoEqualisation(unsigned short& percent) const {
    percent = H<uint16_t>(kHistoPercent);
    return m_Header[kHistoOn] & 1;
}

// ---------------------------------------------------------------- special unit

int CPtrOver::GetSpecialScale(float*& scale, int& count) {
    if (GetSpecialUnit() == 0) return 0;
    std::memcpy(m_fScale, m_Header + kSpecialScale, sizeof(m_fScale));
    scale = m_fScale;
    count = kSpecialScaleCount;
    return 1;
}

int CPtrOver::SetSpecialScale(const float* scale, int count) {
    if (!scale || count != kSpecialScaleCount) return 0;
    std::memcpy(m_Header + kSpecialScale, scale, sizeof(float) * kSpecialScaleCount);
    return 1;
}

int CPtrOver::ConvDoubleToSpecialUnit(const double* values, long count, unsigned short* out, const float* scale,
                                      unsigned short maxLevel) {
    if (!values || !out || !scale || count < 1) return 0;
    const double low = scale[0];
    const double span = static_cast<double>(scale[kSpecialScaleCount - 1]) - low;
    if (span == 0.0) return 0;
    for (long i = 0; i < count; ++i) {
        const double level = (values[i] - low) / span * maxLevel;
        if (!(level > 0.0)) out[i] = 0;  // also NaN
        else if (level >= maxLevel) out[i] = maxLevel;
        else out[i] = static_cast<unsigned short>(level);
    }
    return 1;
}

// ---------------------------------------------------------------- calibration

void CPtrOver::SetFileCalibration(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    SetText(kCalibrationName, kCalibrationNameSize, name.c_str(), kCalibrationNameSize - 1);
    SetText(kCalibrationPath, kCalibrationPathSize, path.c_str(), kCalibrationPathSize - 1);
}
int CPtrOver::GetFileCalibration(std::string* path) const {
    const std::string name = Text(kCalibrationName, kCalibrationNameSize);
    if (name.empty()) return 0;
    if (path) {
        const std::string full = Text(kCalibrationPath, kCalibrationPathSize);
        *path = full.empty() ? name : full;
    }
    return 1;
}
void CPtrOver::RemoveFileCalibration() {
    std::memset(m_Header + kCalibrationName, 0, kCalibrationNameSize);
    std::memset(m_Header + kCalibrationPath, 0, kCalibrationPathSize);
}

static_assert(_SCalibrationRBF::kFilmBlockSize == kRBFCalibSize);
static_assert(sizeof(CCnucFile::_CNUC_CALIBRATION) == kCompCalibSize);
static_assert(kCompCalib + kCompCalibSize == kSize);

int CPtrOver::SetRBFCalibParam(const _SCalibrationRBF* param) {
    if (!param) return 0;
    param->ToFilmBlock(m_Header + kRBFCalib);
    return 1;
}
int CPtrOver::GetRBFCalibParam(_SCalibrationRBF* param) const {
    if (!param) return 0;
    return param->FromFilmBlock(m_Header + kRBFCalib) ? 1 : 0;
}

int CPtrOver::SetCompCalibParam(const CCnucFile::_CNUC_CALIBRATION* param) {
    if (!param) return 0;
    std::memcpy(m_Header + kCompCalib, param, kCompCalibSize);
    return 1;
}
int CPtrOver::GetCompCalibParam(CCnucFile::_CNUC_CALIBRATION* param) const {
    if (!param) return 0;
    std::memcpy(param, m_Header + kCompCalib, kCompCalibSize);
    return 1;
}

// ---------------------------------------------------------------- image header

void CPtrOver::GetImageTime(PTR_TIME* time) const {
    if (time) std::memcpy(time, m_Image + Img::kTime, sizeof(PTR_TIME));
}
void CPtrOver::SetImageTime(const PTR_TIME* time) {
    if (time) std::memcpy(m_Image + Img::kTime, time, sizeof(PTR_TIME));
}
unsigned char CPtrOver::GetImageThousandth() const { return m_Image[Img::kThousandth]; }
void CPtrOver::SetImageThousandth(unsigned char v) { m_Image[Img::kThousandth] = v; }
unsigned short CPtrOver::GetImageMicro() const { return I<uint16_t>(Img::kMicro); }
void CPtrOver::SetImageMicro(unsigned short v) { SetI<uint16_t>(Img::kMicro, v); }

void CPtrOver::SetFrameTime(double time) {
    unsigned short hour = 0, minute = 0, second = 0, hundredths = 0, thousandths = 0, micro = 0;
    SplitTime(time, &hour, &minute, &second, &hundredths, &thousandths, &micro);
    PTR_TIME t {static_cast<uint8_t>(minute), static_cast<uint8_t>(hour), static_cast<uint8_t>(hundredths),
                static_cast<uint8_t>(second)};
    SetImageTime(&t);
    SetImageThousandth(static_cast<unsigned char>(thousandths));
    SetImageMicro(micro);
}
double CPtrOver::GetFrameTime() const {
    PTR_TIME t;
    GetImageTime(&t);
    double value = 0.0;
    MergeTime(&value, t.hour, t.minute, t.second, t.hundredths, GetImageThousandth(), GetImageMicro());
    return value;
}

void CPtrOver::SetImageDetectorTemp(float v) { SetI<float>(Img::kDetectorTemp, v); }
float CPtrOver::GetImageDetectorTemp() const { return I<float>(Img::kDetectorTemp); }
void CPtrOver::SetImageSensorTemp(float v, int index) {
    if (index >= 0 && index < Img::kSensorCount) SetI<float>(Img::kSensorTemp + 4 * static_cast<size_t>(index), v);
}
float CPtrOver::GetImageSensorTemp(int index) const {
    if (index >= 0 && index < Img::kSensorCount) return I<float>(Img::kSensorTemp + 4 * static_cast<size_t>(index));
    return 0.0f;
}
void CPtrOver::SetImageLockinData(const PTR_LOCKIN_DATA* data) {
    if (data) std::memcpy(m_Image + Img::kLockin, data, sizeof(PTR_LOCKIN_DATA));
}
void CPtrOver::GetImageLockinData(PTR_LOCKIN_DATA* data) const {
    if (data) std::memcpy(data, m_Image + Img::kLockin, sizeof(PTR_LOCKIN_DATA));
}
void CPtrOver::SetImageMultiIntegration(unsigned char v) { m_Image[Img::kMultiIntegration] = v; }
unsigned char CPtrOver::GetImageMultiIntegration() const { return m_Image[Img::kMultiIntegration]; }
void CPtrOver::SetImageWindow(unsigned short on) { SetI<uint16_t>(Img::kWindow, on); }
unsigned short CPtrOver::GetImageWindow() const { return I<uint16_t>(Img::kWindow); }
void CPtrOver::SetImageIntegration(float seconds) { SetI<float>(Img::kIntegration, seconds); }
float CPtrOver::GetImageIntegration() const { return I<float>(Img::kIntegration); }
void CPtrOver::SetImageRealDriverTopFrame(uint64_t counter) { SetI<uint64_t>(Img::kTopFrame, counter); }
uint64_t CPtrOver::GetImageRealDriverTopFrame() const {
    return m_Header[kTopFrameValid] ? I<uint64_t>(Img::kTopFrame) : 0;
}
void CPtrOver::SetImageRealDriverTopFrameValid(int valid) { m_Header[kTopFrameValid] = valid ? 1 : 0; }
int CPtrOver::IsImageRealDriverTopFrameValid() const { return m_Header[kTopFrameValid] != 0; }
void CPtrOver::SetImagePage(unsigned char v) { m_Image[Img::kPage] = v; }
unsigned char CPtrOver::GetImagePage() const { return m_Image[Img::kPage]; }
void CPtrOver::SetImageCameraTimeStamp(uint64_t v) { SetI<uint64_t>(Img::kCameraTimeStamp, v); }
uint64_t CPtrOver::GetImageCameraTimeStamp() const { return I<uint64_t>(Img::kCameraTimeStamp); }

void CPtrOver::SetImageIRIGB(unsigned char mask, unsigned short day, const unsigned char* timeBytes, int timeCount,
                             uint32_t micro, unsigned char year) {
    m_Image[Img::kIRIGBMask] = mask;
    SetI<uint16_t>(Img::kIRIGBDay, day);
    if (timeBytes && timeCount > 0) std::memcpy(m_Image + Img::kIRIGBTime, timeBytes, timeCount < 3 ? timeCount : 3);
    SetI<uint32_t>(Img::kIRIGBMicro, micro);
    m_Image[Img::kIRIGBYear] = year;
}
void CPtrOver::GetImageIRIGB(unsigned char& mask, unsigned short& day, unsigned char* timeBytes, int timeCount,
                             uint32_t& micro, unsigned char& year) const {
    mask = m_Image[Img::kIRIGBMask];
    day = I<uint16_t>(Img::kIRIGBDay);
    if (timeBytes && timeCount > 0) std::memcpy(timeBytes, m_Image + Img::kIRIGBTime, timeCount < 3 ? timeCount : 3);
    micro = I<uint32_t>(Img::kIRIGBMicro);
    year = m_Image[Img::kIRIGBYear];
}
int CPtrOver::IsImageIRIGBActive() const { return m_Image[Img::kIRIGBMask] & 1; }

void CPtrOver::SetSubWindowRect(const CRect* rect) {
    if (!rect) {
        SetWindow(0);
        SetImageWindow(0);
        return;
    }
    SetWindow(1);
    SetImageWindow(1);
    SetI<int16_t>(Img::kWindowRect + 0, static_cast<int16_t>(rect->left));
    SetI<int16_t>(Img::kWindowRect + 2, static_cast<int16_t>(rect->top));
    SetI<int16_t>(Img::kWindowRect + 4, static_cast<int16_t>(rect->right - rect->left));
    SetI<int16_t>(Img::kWindowRect + 6, static_cast<int16_t>(rect->bottom - rect->top));
}
void CPtrOver::GetSubWindowRect(CRect* rect) const {
    if (!rect) return;
    if (GetWindow() || GetImageWindow()) {
        const int32_t left = I<int16_t>(Img::kWindowRect + 0);
        const int32_t top = I<int16_t>(Img::kWindowRect + 2);
        rect->SetRect(left, top, left + I<int16_t>(Img::kWindowRect + 4), top + I<int16_t>(Img::kWindowRect + 6));
    } else {
        rect->SetRect(0, 0, GetPoint(), GetLine());
    }
}

// ---------------------------------------------------------------- copies and filling

int CPtrOver::CopyImageHeader(CPtrOver* dst, const CPtrOver* src) {
    if (!dst || !src || dst->GetImageHeaderSize() != src->GetImageHeaderSize()) return 0;
    std::memcpy(dst->m_Image, src->m_Image, sizeof(dst->m_Image));
    return 1;
}

int CPtrOver::CopyHeaderPtr(CPtrOver* dst, const CPtrOver* src, int copyComment, int copyCalibration) {
    if (!dst || !src) return 0;
    if (dst == src) return 1;
    struct Range {
        size_t off, size;
        bool keep;
    };
    const Range kept[] = {
        {0, kCamera, true},  // structure, counts, recording date and time
        {kPoint, 6, true},   // Point, Line, bit depth
        {kComment, kCommentSize, !copyComment},
        {kCalibrationName, kCalibrationNameSize, !copyCalibration},
        {kCalibrationPath, kCalibrationPathSize, !copyCalibration},
        {kRBFCalib, kRBFCalibSize, !copyCalibration},
        {kCompCalib, kCompCalibSize, !copyCalibration},
    };
    unsigned char old[kSize];
    std::memcpy(old, dst->m_Header, kSize);
    std::memcpy(dst->m_Header, src->m_Header, kSize);
    for (const Range& r : kept)
        if (r.keep) std::memcpy(dst->m_Header + r.off, old + r.off, r.size);
    const unsigned short maxLevel = dst->GetMaxLevel();
    if (dst->GetMinLUT() > maxLevel) dst->SetMinLUT(maxLevel);
    if (dst->GetMaxLUT() > maxLevel) dst->SetMaxLUT(maxLevel);
    return 1;
}

int CPtrOver::FillHeaderInfoSetup() {
    const CConfig config(1);
    SetCamera(config.GetCamera().c_str());
    SetLens(config.GetLens().c_str());
    SetSerial(config.GetSerial().c_str());
    SetLensReference(config.GetLensSerial().c_str());
    SetDetector(config.GetDetector());
    return 1;
}

int CPtrOver::FillHeaderInfoImage(const InfoImageStruct* info, std::vector<std::string>& lines, const CRect& window,
                                  const std::string& camera) {
    if (!info) return 0;
    PTR_TIME t {info->byMinute, info->byHour, info->byHundredth, info->bySecond};
    SetImageTime(&t);
    SetImageThousandth(info->byThousandth);
    SetImageMicro(info->wMicro);
    SetImageDetectorTemp(info->fDetectorTemp);
    for (int i = 0; i < PtrImage::kSensorCount; ++i) SetImageSensorTemp(info->fSensorTemp[i], i);
    SetImageIntegration(info->fIntegration);
    SetImageMultiIntegration(info->byMultiIntegration);
    SetImageRealDriverTopFrame(info->qwTopFrame);
    SetImageRealDriverTopFrameValid(info->bTopFrameValid ? 1 : 0);
    SetImagePage(info->byPage);
    SetImageCameraTimeStamp(info->qwCameraTimeStamp);
    SetImageIRIGB(info->byIRIGBMask, info->wIRIGBDay, info->byIRIGBTime, 3, info->dwIRIGBMicro, info->byIRIGBYear);
    if (window.IsRectEmpty()) SetSubWindowRect(nullptr);
    else SetSubWindowRect(&window);
    if (!camera.empty()) SetCamera(camera.c_str());

    lines.clear();
    lines.push_back(Format("Time: %02u:%02u:%02u.%02u%u %03u us", info->byHour, info->byMinute, info->bySecond,
                           info->byHundredth, info->byThousandth, info->wMicro));
    lines.push_back(Format("Detector temperature: %g", static_cast<double>(info->fDetectorTemp)));
    for (int i = 0; i < PtrImage::kSensorCount; ++i)
        lines.push_back(Format("Sensor %d temperature: %g", i, static_cast<double>(info->fSensorTemp[i])));
    lines.push_back(Format("Integration: %g s", static_cast<double>(info->fIntegration)));
    lines.push_back(Format("Multi-integration: %u", info->byMultiIntegration));
    lines.push_back(Format("Top frame: %llu%s", static_cast<unsigned long long>(info->qwTopFrame),
                           info->bTopFrameValid ? "" : " (not valid)"));
    lines.push_back(Format("Page: %u", info->byPage));
    lines.push_back(Format("Camera time stamp: %llu", static_cast<unsigned long long>(info->qwCameraTimeStamp)));
    lines.push_back(Format("IRIG-B: mask %u, day %u, %02u:%02u:%02u, %u us, year %u", info->byIRIGBMask,
                           info->wIRIGBDay, info->byIRIGBTime[0], info->byIRIGBTime[1], info->byIRIGBTime[2],
                           info->dwIRIGBMicro, info->byIRIGBYear));
    if (!window.IsRectEmpty())
        lines.push_back(Format("Sub-window: %d, %d, %d x %d", window.left, window.top, window.Width(), window.Height()));
    return 1;
}

// ---------------------------------------------------------------- the file itself

int CPtrOver::IsCDRom() const { return DriveOf(m_strFileName).cdrom ? 1 : 0; }

int CPtrOver::IsReadOnly() const { return DriveOf(m_strFileName).readOnly ? 1 : 0; }

int CPtrOver::IsNetwork() const { return DriveOf(m_strFileName).network ? 1 : 0; }

int64_t CPtrOver::GetFileSize() const {
    File file;
    if (!file.Open(m_strFileName, File::modeRead | File::shareDenyNone)) return 0;
    const int64_t length = file.GetLength();
    return length < 0 ? 0 : length;
}

}  // namespace thermokit
