#pragma once
// Films of the simulated camera: a new film file with the camera's full
// header, frames appended one by one with their image headers, and, when
// asked, the scene's true temperatures beside it as a film of doubles
// (degrees Celsius, one image per frame).
//
// Films are recorded through the bank ring (CPtr2), as a camera records
// them; every frame reaches the film through AppendFilmFrame.
#include <functional>
#include <memory>
#include <string>

namespace thermokit {

class CFrame;
class CPtr;
class CPtrOver;
class CSimDetector;
class CSimScene;

// Appends frame to film; the film's result.
int AppendFilmFrame(CPtr& film, CFrame* frame);

class CSimFilm {
public:
    // Called before each frame is taken: the film (to set image-header
    // fields) and the frame's index in the film.
    using FrameHook = std::function<void(CPtrOver* film, unsigned long frame)>;

    // A new film at path (an existing file is replaced), header from the
    // detector as it is now. IsOpen() tells whether the file could be made.
    CSimFilm(const std::string& path, const CSimDetector& detector);
    ~CSimFilm();
    CSimFilm(const CSimFilm&) = delete;
    CSimFilm& operator=(const CSimFilm&) = delete;

    int IsOpen() const { return m_bOpen; }
    // Ends the film (final header, exact length); 1 when every frame reached
    // the disk. The destructor closes a film still open.
    int Close();
    CPtr* GetFilm() { return m_pFilm.get(); }
    unsigned long GetFrameCount() const;

    // Takes one frame of the scene and appends it; 0 when writing failed.
    // kelvin, when given, receives the scene temperatures (GetSize() values).
    int Add(CSimDetector& detector, const CSimScene& scene, unsigned long frameInFilm, float* kelvin = nullptr);

    // Records frames frames of the scene into path. truthPath, when not
    // empty, receives the true temperatures of each frame. Returns 1 when
    // every file was written.
    static int Record(const std::string& path, CSimDetector& detector, const CSimScene& scene, unsigned long frames,
                      const std::string& truthPath = std::string(), const FrameHook& hook = FrameHook());

private:
    std::unique_ptr<CPtr> m_pFilm;
    int m_bOpen = 0;
};

}  // namespace thermokit
