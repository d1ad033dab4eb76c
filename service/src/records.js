// The JSON shapes the service hands out. Key order is part of what clients see, so the
// records are built field by field rather than by spreading internal objects.

export function sessionRecord(session, baseUrl) {
  const record = {
    type: 'Session',
    id: session.id,
    code: session.code,
    state: session.state,
    control_url: baseUrl,
    control_token: session.controlToken,
    stream_url: baseUrl,
    stream_token: session.streamToken,
    created_at: session.createdAt,
  };
  if (session.deviceId !== undefined) record.device_id = session.deviceId;
  if (session.agent !== undefined) record.agent = { id: session.agent.id, name: session.agent.name };
  if (session.device !== undefined) record.device = session.device;
  if (session.customData !== undefined) record.custom_data = session.customData;
  if (session.endedAt !== undefined) record.ended_at = session.endedAt;
  return record;
}

export function deviceRecord(device, baseUrl, nextRegistration) {
  const record = {
    type: 'Device',
    id: device.id,
    push_token: device.pushToken,
    push_provider: device.pushProvider,
    device: device.device,
  };
  if (device.customData !== undefined) record.custom_data = device.customData;
  record.registered_at = device.registeredAt;
  record.next_registration = nextRegistration;
  record.notification_url = baseUrl;
  record.notification_token = device.notificationToken;
  return record;
}

// A session as an agent sees it: the device's channel tokens are the device's alone (with them
// anyone could read the agent's input or show the agent pictures of its own making).
export function agentSessionRecord(record) {
  const { control_token: _control, stream_token: _stream, ...rest } = record;
  return rest;
}

// A device as an agent sees it: its notification token is the device's alone.
export function agentDeviceRecord(record) {
  const { notification_token: _token, ...rest } = record;
  return rest;
}
