#pragma once
// CPtrOver: the two header blocks of a film file.
//
// A film file is a 3476-byte file header followed, for each image, by a
// 1016-byte image header and the image's pixels. CPtrOver keeps both headers
// as raw little-endian byte blocks (fields start at odd offsets, so every
// field is read and written with load/store at its named offset, never through
// a cast) and gives named access to every field. It reads and writes the file
// header; the images themselves belong to CPtr and CPtrFloat.
//
// Bytes of the blocks that no accessor names are reserved: InitHeader writes
// them as 0 and everything else leaves them alone, so that a film written by
// a newer tool keeps its extra fields when this code rewrites its header.
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CCnucFile.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/LastError.h"

namespace thermokit {

// Offsets of the file-header fields, in bytes from the file's start.
namespace PtrHeader {
constexpr size_t kSize = 3476;
constexpr size_t kSignature = 0;         // "RKK" and a NUL
constexpr size_t kVersion = 5;           // "5.60" and a NUL
constexpr size_t kEndOfText = 10;        // 0x1A
constexpr size_t kHeaderSize = 11;       // u32
constexpr size_t kImageHeaderSize = 15;  // u32
constexpr size_t kRecordWords = 19;      // u32
constexpr size_t kPixelCount = 23;       // u32
constexpr size_t kFrameCount = 27;       // u32
constexpr size_t kCurrentFrame = 31;     // u32
constexpr size_t kDate = 35;             // PTR_DATE
constexpr size_t kTime = 39;             // PTR_TIME
constexpr size_t kThousandth = 43;       // u8
constexpr size_t kCamera = 44;           // text 20
constexpr size_t kLens = 64;             // text 20
constexpr size_t kFilter = 84;           // text 20
constexpr size_t kApertureName = 104;    // text 20
constexpr size_t kBilletSpeed = 124;     // float
constexpr size_t kBilletDiameter = 128;  // float
constexpr size_t kBilletShape = 132;     // u16
constexpr size_t kEmissivity = 141;      // float
constexpr size_t kAmbiant = 145;         // float
constexpr size_t kDistance = 149;        // float
constexpr size_t kInductorCoil = 153;    // u8
constexpr size_t kInductorPower = 154;   // i32
constexpr size_t kInductorVoltage = 158; // u16
constexpr size_t kInductorFrequency = 160;  // i32
constexpr size_t kSynchronisation = 169;    // u8
constexpr size_t kTransmission = 170;       // float
constexpr size_t kExtinction = 174;         // float
constexpr size_t kAtmosphere = 184;         // float
constexpr size_t kCutOn = 188;              // float
constexpr size_t kCutOff = 192;             // float
constexpr size_t kPixelSize = 196;          // float
constexpr size_t kPixelPitch = 200;         // float
constexpr size_t kAperture = 204;           // float
constexpr size_t kFocal = 208;              // float
constexpr size_t kHousing = 212;            // 2 floats
constexpr size_t kSerial = 220;             // text 19, 10 characters written
constexpr size_t kDetector = 239;           // i32
constexpr size_t kDetectorGain = 243;       // u16
constexpr size_t kMinLUT = 245;             // u16
constexpr size_t kMaxLUT = 247;             // u16
constexpr size_t kSpecialUnit = 277;        // u16
constexpr size_t kSpecialUnitName = 279;    // text 10
constexpr size_t kSpecialScale = 289;       // 17 floats
constexpr size_t kZoomX = 365;              // float
constexpr size_t kZoomY = 369;              // float
constexpr size_t kPoint = 377;              // u16
constexpr size_t kLine = 379;               // u16
constexpr size_t kBit = 381;                // u16
constexpr size_t kAverage = 383;            // u16
constexpr size_t kLongitude = 385;          // float
constexpr size_t kLatitude = 389;           // float
constexpr size_t kAltitude = 393;           // float
constexpr size_t kExternalSync = 397;       // u8
constexpr size_t kPeriod = 403;             // float
constexpr size_t kIntegration = 407;        // float (index 0)
constexpr size_t kIntegrationN = 409;       // float at 409 + 4n, n >= 1
constexpr size_t kWindow = 411;             // u16
constexpr size_t kNucIndex = 557;           // u16
constexpr size_t kComment = 563;            // text 1000
constexpr size_t kCalibrationName = 1563;   // 100 bytes
constexpr size_t kFileTools = 1663;         // text 256
constexpr size_t kPaletteValid = 1919;      // u8
constexpr size_t kPaletteIndex = 1920;      // u16
constexpr size_t kPaletteFlag1 = 1922;      // u8
constexpr size_t kPaletteFlag2 = 1923;      // u8
constexpr size_t kUnitValid = 1924;         // u8
constexpr size_t kUnitIndex = 1925;         // u16
constexpr size_t kZoomScrollX = 1927;       // i32
constexpr size_t kZoomScrollY = 1931;       // i32
constexpr size_t kIsotherm = 2072;          // 3 records of 9 bytes
constexpr size_t kZeroOn = 2099;            // u8
constexpr size_t kZeroLevel = 2100;         // u16
constexpr size_t kPaletteWidth = 2102;      // u16
constexpr size_t kPaletteFullScale = 2104;  // u8
constexpr size_t kKm = 2106;                // double
constexpr size_t kDemodFrequency = 2114;    // float
constexpr size_t kDistanceOffset = 2140;    // float
constexpr size_t kHistoOn = 2144;           // u8
constexpr size_t kHistoPercent = 2145;      // u16
constexpr size_t kCalibrationPath = 2147;   // 256 bytes
constexpr size_t kTopFrameValid = 2403;     // u8
constexpr size_t kSubSampling = 2404;       // i32
constexpr size_t kFlipX = 2408;             // u8
constexpr size_t kFlipY = 2409;             // u8
constexpr size_t kBlackBody = 2410;         // float
constexpr size_t kFilterWheel = 2414;       // u8
constexpr size_t kFocalIndex = 2415;        // u8
constexpr size_t kFlipValid = 2416;         // u8
constexpr size_t kLensReference = 2417;     // text 20
constexpr size_t kMasterClock = 2437;       // float
constexpr size_t kPlaySpeed = 2441;         // i32
constexpr size_t kFilterNames = 2800;       // filters 1..7, text 20 each (ends at 2940)
constexpr size_t kIRIGBPlay = 2940;         // u8
constexpr size_t kRBFCalib = 2976;          // 44 bytes
constexpr size_t kIntegrationMode = 3020;   // u32
constexpr size_t kCompCalib = 3028;         // 448 bytes, to the end

constexpr size_t kTextSize = 20;            // camera, lens, filter, aperture, lens reference
constexpr size_t kSerialSize = 19;
constexpr size_t kSerialChars = 10;
constexpr size_t kSpecialUnitNameSize = 10;
constexpr size_t kCommentSize = 1000;
constexpr size_t kCalibrationNameSize = 100;
constexpr size_t kFileToolsSize = 256;
constexpr size_t kCalibrationPathSize = 256;
constexpr size_t kIsothermSize = 9;
constexpr size_t kRBFCalibSize = 44;
constexpr size_t kCompCalibSize = 448;
constexpr int kSpecialScaleCount = 17;
constexpr int kIntegrationCount = 37;       // index 0 at 407, 1..36 at 409 + 4n (the last ends at 557)
constexpr int kFilterCount = 8;             // index 0 at 84, 1..7 at 2800 + 20 (n - 1)
constexpr int kIsothermCount = 3;
}  // namespace PtrHeader

// Offsets of the image-header fields, from the image header's start.
namespace PtrImage {
constexpr size_t kSize = 1016;
constexpr size_t kTime = 80;            // PTR_TIME
constexpr size_t kThousandth = 160;     // u8
constexpr size_t kMicro = 161;          // u16
constexpr size_t kDetectorTemp = 228;   // float
constexpr size_t kSensorTemp = 232;     // 4 floats
constexpr size_t kLockin = 248;         // PTR_LOCKIN_DATA, 21 bytes
constexpr size_t kMultiIntegration = 277;  // u8
constexpr size_t kWindow = 278;         // u16
constexpr size_t kWindowRect = 280;     // 4 x i16: left, top, width, height
constexpr size_t kIntegration = 288;    // float
constexpr size_t kTopFrame = 292;       // u64
constexpr size_t kPage = 300;           // u8
constexpr size_t kCameraTimeStamp = 301;  // u64
constexpr size_t kIRIGBMask = 309;      // u8
constexpr size_t kIRIGBDay = 310;       // u16
constexpr size_t kIRIGBTime = 312;      // 3 bytes
constexpr size_t kIRIGBMicro = 315;     // u32
constexpr size_t kIRIGBYear = 319;      // u8
constexpr int kSensorCount = 4;
}  // namespace PtrImage

// What a camera driver reports with every image, as FillHeaderInfoImage takes
// it. All fields are copied as they are into the image header.
struct InfoImageStruct {
    unsigned char byHour = 0, byMinute = 0, bySecond = 0;  // image time of day
    unsigned char byHundredth = 0, byThousandth = 0;
    unsigned short wMicro = 0;                             // microseconds below the thousandth
    float fDetectorTemp = 0.0f;                            // detector temperature
    float fSensorTemp[4] = {0.0f, 0.0f, 0.0f, 0.0f};       // housing sensors 0..3
    float fIntegration = 0.0f;                             // integration time of the image, seconds
    unsigned char byMultiIntegration = 0;                  // multi-integration number
    uint64_t qwTopFrame = 0;                               // driver top-frame counter
    bool bTopFrameValid = false;                           // the driver counts frames
    unsigned char byPage = 0;                              // page index
    uint64_t qwCameraTimeStamp = 0;                        // camera time stamp
    unsigned char byIRIGBMask = 0;                         // bit 0 active, bit 1 SBS, bit 2 year
    unsigned short wIRIGBDay = 0;
    unsigned char byIRIGBTime[3] = {0, 0, 0};              // hour, minute, second
    uint32_t dwIRIGBMicro = 0;
    unsigned char byIRIGBYear = 0;
};

class CPtrOver : public LastError {
public:
#pragma pack(push, 1)
    // Recording date: year, day of the month, month (1..12).
    struct PTR_DATE {
        uint16_t year;
        uint8_t day;
        uint8_t month;
    };
    // Time of day: minute, hour, hundredths of a second, second (this order).
    struct PTR_TIME {
        uint8_t minute;
        uint8_t hour;
        uint8_t hundredths;
        uint8_t second;
    };
    // Lock-in data of an image (21 bytes): written by a lock-in acquisition so
    // that a film can be demodulated later.
    struct PTR_LOCKIN_DATA {
        uint16_t wValid;          // non-zero: the image carries lock-in data
        uint32_t dwPeriodIndex;   // index of the image in its excitation period
        uint32_t dwPeriodFrames;  // images per excitation period
        uint8_t bySignal;         // excitation signal state when the image was taken (0 off, 1 on)
        uint8_t byChannel;        // excitation channel
        uint8_t byMode;           // excitation waveform (0 sine, 1 square)
        uint32_t dwFrequency;     // demodulation frequency: bit pattern of a float, hertz
        uint32_t dwPeriodCount;   // number of the excitation period since the start
    };
#pragma pack(pop)
    static_assert(sizeof(PTR_DATE) == 4 && sizeof(PTR_TIME) == 4 && sizeof(PTR_LOCKIN_DATA) == 21);

    CPtrOver();
    // Film of an existing file: reads and checks its file header (IsValid).
    explicit CPtrOver(const std::string& fileName);
    CPtrOver(const CPtrOver& other);
    CPtrOver& operator=(const CPtrOver& other);
    virtual ~CPtrOver();

    // ---- Blocks, file, validity ----
    unsigned char* GetHeaderAddress() { return m_Header; }
    const unsigned char* GetHeaderAddress() const { return m_Header; }
    unsigned char* GetImageHeaderAddress() { return m_Image; }
    const unsigned char* GetImageHeaderAddress() const { return m_Image; }
    int IsValid() const { return m_bValid; }
    const std::string& GetFileName() const { return m_strFileName; }
    virtual void SetFileName(const std::string& fileName);
    int IsCompatible() const { return 1; }

    // Clears the file header and writes the defaults of a new film.
    void InitHeader(unsigned short point, unsigned short line, unsigned short bit);
    // Clears the image header.
    void InitImage();
    // Writes the recording date and time of the file header from a local
    // time; null means the clock could not be read (hour and minute 255,
    // second 255, date 0).
    void SetRecordingClock(const std::tm* local);

    // Reads the file header of the film's file; 0 when it cannot be opened or
    // read, or when it is not a valid film header (the block is then unchanged).
    virtual int ReadHeader();
    // Writes the file header at the start of the film's file (created when missing).
    virtual int WriteHeader();

    // Checks a file header against itself and the file's length: signature,
    // sizes, record size, pixel count = Point x Line, and that the file can
    // hold one image (or, for a film of no image, that an image is not absurdly
    // large). bytesPerPixel 0 accepts 16-bit and double films. why (when
    // given) gets what is wrong.
    static int CheckHeader(const unsigned char* header, int64_t fileLength, unsigned bytesPerPixel,
                           std::string* why = nullptr);
    // Bytes per pixel that the record size of a header implies: 2, 8, or 0.
    static unsigned PixelBytes(const unsigned char* header);

    // ---- Structure ----
    uint32_t GetHeaderSize() const;
    uint32_t GetImageHeaderSize() const;
    uint32_t GetRecordWords() const;
    long GetSize() const;  // pixels of one image
    unsigned long GetFrameNumber() const;
    void SetFrameNumber(unsigned long count);
    unsigned long GetCurrentFrame() const;
    void SetCurrentFrame(unsigned long index);
    int IsFirstFrame() const { return GetCurrentFrame() == 0; }
    int IsLastFrame() const { return GetCurrentFrame() == GetFrameNumber() - 1; }
    int IsEmpty() const { return GetFrameNumber() == 0; }
    int IsSingle() const { return GetFrameNumber() == 1; }
    std::string GetSignature() const;
    std::string GetVersion() const;
    unsigned short GetPoint() const;
    unsigned short GetLine() const;
    unsigned short GetBit() const;
    void SetBit(unsigned short bit);
    unsigned short GetMaxLevel() const;

    // ---- Recording date and time ----
    void GetDate(PTR_DATE* date) const;
    void SetDate(const PTR_DATE* date);
    void GetTime(PTR_TIME* time) const;
    void SetTime(const PTR_TIME* time);
    unsigned char GetThousandth() const;
    void SetThousandth(unsigned char thousandth);
    // Seconds since midnight: split into hour, minute, second, hundredths and thousandths.
    void SetTime(double time);
    double GetTime() const;

    // ---- Texts ----
    void SetCamera(const char* text);
    std::string GetCamera() const;
    void SetLens(const char* text);
    std::string GetLens() const;
    // Index 0 is the filter field at 84; 1..7 are kept in the reserved area at
    // 2800 + 20 (index - 1). Other indexes are ignored (empty).
    void SetFilter(const char* text, int index = 0);
    std::string GetFilter(int index = 0) const;
    void SetApertureName(const char* text);
    std::string GetApertureName() const;
    void SetSerial(const char* text);
    std::string GetSerial() const;
    void SetSpecialUnitName(const char* text);
    std::string GetSpecialUnitName() const;
    void SetComment(const char* text);  // null is ignored
    std::string GetComment() const;
    void SetFileTools(const char* text);
    std::string GetFileTools() const;
    void SetLensReference(const char* text);
    std::string GetLensReference() const;

    // ---- Scene and optics ----
    void SetBilletSpeed(float v);
    float GetBilletSpeed() const;
    void SetBilletDiameter(float v);
    float GetBilletDiameter() const;
    void SetBilletShape(unsigned short v);
    unsigned short GetBilletShape() const;
    void SetEmissivity(float v);
    float GetEmissivity() const;
    void SetAmbiantTemperature(float kelvin);
    float GetAmbiantTemperature() const;
    void SetDistance(float v);
    float GetDistance() const;
    void SetInductorCoil(unsigned char v);
    unsigned char GetInductorCoil() const;
    void SetInductorPower(int32_t v);
    int32_t GetInductorPower() const;
    void SetInductorVoltage(unsigned short v);
    unsigned short GetInductorVoltage() const;
    void SetInductorFrequency(int32_t v);
    int32_t GetInductorFrequency() const;
    void SetSynchronisation(unsigned char v);
    unsigned char GetSynchronisation() const;
    void SetTransmission(float v);
    float GetTransmission() const;
    void SetExtinction(float v);
    float GetExtinction() const;
    void SetAtmosphereTemperature(float v);
    float GetAtmosphereTemperature() const;
    void SetCutOn(float v);
    float GetCutOn() const;
    void SetCutOff(float v);
    float GetCutOff() const;
    void SetPixelSize(float micrometres);
    float GetPixelSize() const;
    void SetPixelPitch(float v);
    float GetPixelPitch() const;
    void SetAperture(float fNumber);
    float GetAperture() const;
    // Stores the focal length and writes the lens name as "%g mm".
    void SetFocal(float focal);
    // The lens name read back as a number (0 when it does not start with one).
    float GetFocal() const;
    float GetFocalLength() const;  // the float field at 208
    void SetHousingTemperature(float value, int index);  // index 0 or 1
    float GetHousingTemperature(int index) const;
    void SetDetector(int32_t v);
    int32_t GetDetector() const;
    void SetDetectorGain(unsigned short v);
    unsigned short GetDetectorGain() const;
    void SetLongitude(float v);
    float GetLongitude() const;
    void SetLatitude(float v);
    float GetLatitude() const;
    void SetAltitude(float v);
    float GetAltitude() const;
    void SetDistanceOffset(float v);
    float GetDistanceOffset() const;
    void SetKm(double v);
    double GetKm() const;
    void SetDemodeFrequency(float v);  // lock-in demodulation frequency of the film
    float GetDemodeFrequency() const;

    // ---- Acquisition ----
    void SetAverage(unsigned short count);  // values below 2 ignored
    unsigned short GetAverage() const;      // 1 for a stored 0 or 1
    int IsAverage() const;
    void SetSubSampling(int32_t factor);    // values below 2 ignored
    int32_t GetSubSampling() const;         // 1 for a stored value below 2
    void SetExternalSync(unsigned char on);
    int IsExternalSync() const;
    void SetFramePeriod(float seconds);
    float GetFramePeriod() const;
    void SetFrameRate(float rate);          // stores 1 / rate when rate > 0
    float GetFrameRate() const;             // 1 / period, 0 when the period is not positive
    // Index 0: the field at 407 (and, when set, the current image's integration
    // time too); 1..36: the fields at 409 + 4 index. Other indexes: 0 / ignored.
    void SetIntegration(float value, int index = 0);
    float GetIntegration(int index = 0) const;
    void SetIntegrationMode(uint32_t mode);
    uint32_t GetIntegrationMode() const;
    void SetWindow(unsigned short on);
    unsigned short GetWindow() const;
    void SetNucIndex(unsigned short index);
    unsigned short GetNucIndex() const;
    void SetMasterClock(float v);
    float GetMasterClock() const;
    void SetPlaySpeed(int32_t v);
    int32_t GetPlaySpeed() const;
    void SetIRIGBPlay(int on);
    int IsIRIGBPlay() const;
    void SetCaptureFlip(int x, int y);
    int GetCaptureFlip(int& x, int& y) const;  // 0 (and 0, 0) while not valid
    void SetCaptureBlackBody(float v);
    float GetCaptureBlackBody() const;
    void SetCaptureFilterWheel(unsigned char v);
    unsigned char GetCaptureFilterWheel() const;
    void SetCaptureFocal(unsigned char v);
    unsigned char GetCaptureFocal() const;

    // ---- Display ----
    void SetMinLUT(unsigned short v);
    unsigned short GetMinLUT() const;
    void SetMaxLUT(unsigned short v);
    unsigned short GetMaxLUT() const;
    void SetZoomX(float v);
    float GetZoomX() const;
    void SetZoomY(float v);
    float GetZoomY() const;
    void SetZoomScrollPosition(int32_t x, int32_t y);
    void GetZoomScrollPosition(int32_t& x, int32_t& y) const;
    // flag1: the palette is shown reversed; flag2: out-of-range levels are shown
    // in the saturation colours.
    void SetCurrentPalette(unsigned short index, unsigned char flag1, unsigned char flag2);
    int GetCurrentPalette(unsigned short& index, unsigned char& flag1, unsigned char& flag2) const;
    void SetIndexCurrentUnit(unsigned short index);
    int GetIndexCurrentUnit(unsigned short& index) const;
    int SetIsotherm(int index, int on, unsigned short low, unsigned short high, uint32_t colour);
    int GetIsotherm(int index, int& on, unsigned short& low, unsigned short& high, uint32_t& colour) const;
    int SetZero(int on, unsigned short level);
    int GetZero(int& on, unsigned short& level) const;
    int SetPaletteWidth(unsigned short width);
    unsigned short GetPaletteWidth() const;
    int SetPaletteFullScaleDisplay(int on);
    int GetPaletteFullScaleDisplay() const;
    // Stores bit 0 of on; a percentage of 100 or more is stored as 99.
    void SetHistoEqualisation(int on, unsigned short percent);
    int GetHistoEqualisation(unsigned short& percent) const;  // returns the on bit

    // ---- Special unit ----
    void SetSpecialUnit(unsigned short inUse);
    unsigned short GetSpecialUnit() const;
    // Hands out the 17 values (a copy kept by the object) and 17; 0 when no
    // special unit is in use.
    int GetSpecialScale(float*& scale, int& count);
    int SetSpecialScale(const float* scale, int count);  // count must be 17
    // Levels of the special unit: value v becomes
    // trunc((v - scale[0]) / (scale[16] - scale[0]) x maxLevel), clamped to
    // [0, maxLevel] (the inverse of CPtr::DL2Float). 0 for null pointers,
    // count < 1 or a flat scale.
    static int ConvDoubleToSpecialUnit(const double* values, long count, unsigned short* out, const float* scale,
                                       unsigned short maxLevel);

    // ---- Calibration ----
    // The 100-byte block keeps the file's name without its folder (at most 99
    // characters), the 256-byte block its full path (at most 255 characters).
    void SetFileCalibration(const std::string& path);
    // 0 when no calibration file is kept; else 1 and the full path (or, when
    // the path block is empty, the name).
    int GetFileCalibration(std::string* path) const;
    void RemoveFileCalibration();
    // The radiometric law as the 44-byte film block of _SCalibrationRBF
    // (its named fields, two further constants and a presence byte).
    int SetRBFCalibParam(const _SCalibrationRBF* param);
    // 0 for a null pointer or when the film carries no law (the record is
    // then filled with zeros), else 1.
    int GetRBFCalibParam(_SCalibrationRBF* param) const;
    // The compensated-calibration record, a copy of all its 448 bytes.
    int SetCompCalibParam(const CCnucFile::_CNUC_CALIBRATION* param);
    int GetCompCalibParam(CCnucFile::_CNUC_CALIBRATION* param) const;

    // ---- Image header ----
    void GetImageTime(PTR_TIME* time) const;
    void SetImageTime(const PTR_TIME* time);
    unsigned char GetImageThousandth() const;
    void SetImageThousandth(unsigned char v);
    unsigned short GetImageMicro() const;
    void SetImageMicro(unsigned short v);
    // Seconds since midnight: split into hour, minute, second, hundredths,
    // thousandths and microseconds of the image header.
    void SetFrameTime(double time);
    double GetFrameTime() const;
    void SetImageDetectorTemp(float v);
    float GetImageDetectorTemp() const;
    void SetImageSensorTemp(float v, int index);  // index 0..3
    float GetImageSensorTemp(int index) const;
    void SetImageLockinData(const PTR_LOCKIN_DATA* data);
    void GetImageLockinData(PTR_LOCKIN_DATA* data) const;
    void SetImageMultiIntegration(unsigned char v);
    unsigned char GetImageMultiIntegration() const;
    void SetImageWindow(unsigned short on);
    unsigned short GetImageWindow() const;
    void SetImageIntegration(float seconds);
    float GetImageIntegration() const;
    void SetImageRealDriverTopFrame(uint64_t counter);
    uint64_t GetImageRealDriverTopFrame() const;  // 0 unless the file header says it is valid
    void SetImageRealDriverTopFrameValid(int valid);
    int IsImageRealDriverTopFrameValid() const;
    void SetImagePage(unsigned char v);
    unsigned char GetImagePage() const;
    void SetImageCameraTimeStamp(uint64_t v);
    uint64_t GetImageCameraTimeStamp() const;
    // IRIG-B stamp; at most 3 time bytes are copied in or out.
    void SetImageIRIGB(unsigned char mask, unsigned short day, const unsigned char* timeBytes, int timeCount,
                       uint32_t micro, unsigned char year);
    void GetImageIRIGB(unsigned char& mask, unsigned short& day, unsigned char* timeBytes, int timeCount,
                       uint32_t& micro, unsigned char& year) const;
    int IsImageIRIGBActive() const;
    // Null clears both sub-window flags; otherwise sets them and keeps the
    // rectangle (left, top, width, height) in the image header.
    void SetSubWindowRect(const CRect* rect);
    void GetSubWindowRect(CRect* rect) const;

    // ---- Copies and filling ----
    // Copies the image header when both exist and their image-header sizes agree.
    static int CopyImageHeader(CPtrOver* dst, const CPtrOver* src);
    // Copies the descriptive fields of the file header: everything but the
    // structure (signature, sizes, counts, Point, Line, bit depth) and the
    // recording date and time. copyComment 0 keeps dst's comment,
    // copyCalibration 0 keeps dst's calibration blocks. The LUT bounds are
    // limited to dst's maximal level.
    static int CopyHeaderPtr(CPtrOver* dst, const CPtrOver* src, int copyComment, int copyCalibration);
    // Camera, lens, serial numbers and detector of the current camera configuration.
    int FillHeaderInfoSetup();
    // Fills the image header from a driver's information block. window: the
    // sub-window (an empty rectangle clears it); camera, when not empty,
    // becomes the film's camera name. lines receives one "name: value" text per
    // field written, for display.
    int FillHeaderInfoImage(const InfoImageStruct* info, std::vector<std::string>& lines, const CRect& window,
                            const std::string& camera);

    // ---- The file itself ----
    int IsCDRom() const;     // on an ISO 9660 or UDF file system
    int IsReadOnly() const;  // not writable by this process, or on a read-only mount
    int IsNetwork() const;   // on a network file system (NFS, SMB/CIFS, 9P, Ceph, AFS, Coda)
    int64_t GetFileSize() const;  // 0 when the file cannot be opened

protected:
    // Typed fields of the file header (H) and of the image header (I).
    template <class T>
    T H(size_t off) const { return load<T>(m_Header, off); }
    template <class T>
    void SetH(size_t off, T v) { store<T>(m_Header, off, v); }
    template <class T>
    T I(size_t off) const { return load<T>(m_Image, off); }
    template <class T>
    void SetI(size_t off, T v) { store<T>(m_Image, off, v); }
    void SetText(size_t off, size_t size, const char* text, size_t maxChars);
    std::string Text(size_t off, size_t size) const;

    std::string m_strFileName;
    int m_bValid = 0;
    alignas(8) unsigned char m_Header[PtrHeader::kSize];
    alignas(8) unsigned char m_Image[PtrImage::kSize];
    float m_fScale[PtrHeader::kSpecialScaleCount];  // what GetSpecialScale hands out
};

}  // namespace thermokit
