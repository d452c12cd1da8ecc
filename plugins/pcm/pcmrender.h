// The renderer classes of pcm.dll, one per container, and what they share
// with the readers.
#pragma once
#include "zvplugin_com.h"
#include "pcmformat.h"

// {7C1E5B2A-3D4F-4A8B-9E21-6F0B5C3D8A14}
extern const GUID CLSID_PcmWaveRenderer;
// {7C1E5B2B-3D4F-4A8B-9E21-6F0B5C3D8A14}
extern const GUID CLSID_PcmWave64Renderer;
// {7C1E5B2C-3D4F-4A8B-9E21-6F0B5C3D8A14}
extern const GUID CLSID_PcmAiffRenderer;

// The renderer class id of a container.
const GUID &PcmRendererClsid(PcmContainer container);
// Class objects, handed out as iid with the manager set (it may be null).
HRESULT PcmCreateRenderClass(PcmContainer container, IZvFileIOManager *manager, REFIID iid, void **out);
HRESULT PcmCreateReadClass(PcmContainer container, IZvFileIOManager *manager, REFIID iid, void **out);
// A container's class texts (names, extensions), shared by reader and renderer.
HRESULT PcmInfoTexts(PcmContainer container, const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts);
