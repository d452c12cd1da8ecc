// The wave renderer class of pcm.dll and what it shares with the readers.
#pragma once
#include "zvplugin_com.h"

// {7C1E5B2A-3D4F-4A8B-9E21-6F0B5C3D8A14}
extern const GUID CLSID_PcmWaveRenderer;

// Class objects, handed out as iid with the manager set (it may be null).
HRESULT PcmCreateWaveRenderClass(IZvFileIOManager *manager, REFIID iid, void **out);
HRESULT PcmCreateWaveReadClass(IZvFileIOManager *manager, REFIID iid, void **out);
// The wave class's texts (names, extensions), shared by reader and renderer.
HRESULT PcmWaveInfoTexts(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts);
